// kr_init.h — library start-up and shut-down.
// A host calls KR_init once before any other use of the library and KR_close once at the end.
// KR_init makes and registers the default reporter (standard error), sets the system versions to
// 1.0.0, makes the stream KR_coutPtr, starts the class factory, the module manager and the pipe
// manager (in that order) and sorts the message catalogue; KR_close closes the three managers in
// the reverse order and deletes the stream and the reporter.
#ifndef KRCORE_KR_INIT_H
#define KRCORE_KR_INIT_H

#include "kr_reporter.h"

// Not guarded against a second call: that makes and registers a second reporter and stream (the
// managers that run already stay as they are). The first failure is returned as it is.
extern "C" KR_API KR_RET_STATUS KR_init();
// Always KR_RET_TRUE. KR_coutPtr becomes null; KR_defReporter and KR_msgReporter keep pointing
// at the deleted reporter, so register one of your own before any later report.
extern "C" KR_API KR_RET_STATUS KR_close();

#endif  // KRCORE_KR_INIT_H
