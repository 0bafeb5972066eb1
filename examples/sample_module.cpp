// sample_module.cpp — a plug-in module as hosts load it through the module manager.
// Hosts load the module by its path (KR_dllLoad) and resolve its entry functions by name
// (KR_dllGetProcAddress); the entry functions are plain C names, exported from the module.
#include "krcore.h"

// The module's name, for hosts that list what they loaded.
extern "C" KR_MODULE_EXPORT const char* krsample_moduleName() {
    return "krsample";
}

// How often this function was called since the module was loaded: a module that was really
// released and loaded again starts at 1 again.
extern "C" KR_MODULE_EXPORT unsigned int krsample_callCount() {
    static unsigned int calls = 0;
    return ++calls;
}
