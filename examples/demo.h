// demo.h — what the demonstration host's two tours share.
#ifndef KRCORE_EXAMPLES_DEMO_H
#define KRCORE_EXAMPLES_DEMO_H

#include <stdio.h>

#include <iostream>

// A section title; flushes first, so that everything printed before it stands above it.
inline void heading(const char* title) {
    fflush(stdout);
    std::cout.flush();
    printf("\n== %s ==\n", title);
}

// The tour of the public object model with the sample module at modulePath: 0 when it ran.
int pluginTour(const char* modulePath);

#endif  // KRCORE_EXAMPLES_DEMO_H
