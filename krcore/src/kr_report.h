// kr_report.h — the reporting macros of the library's own sources; not installed.
// Every failure is reported where it is found, under the unit's report name and the line of the
// check. A source defines KRI_UNIT as its report name ("src/kr_mem") after its includes.
//   if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
//   if (p == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Memory allocation", KR_msg(0, 1));
//   if (KRI_FAILED(st)) return st;  // a callee's failure goes up unchanged, never re-reported
#ifndef KRCORE_SRC_KR_REPORT_H
#define KRCORE_SRC_KR_REPORT_H

#include "kr_reporter.h"

// KRI_FAIL, KRI_MSG, KRI_FAILED and KRI_INLINE have one definition, the template headers' one.
// A source takes them for its whole length and never gives them back; the template headers it
// includes afterwards restore them at their end.
#include "kr_macros_begin.h"

#define KRI_FAIL_MSG(st, text, ...) \
    (KR_reportErrorMsg(KRI_UNIT, __LINE__, (text), __VA_ARGS__), KRI_FAIL(st))
#define KRI_MSG_W(text, ...) KR_reportErrorMsgW(KRI_UNIT, __LINE__, (text), __VA_ARGS__)

#endif  // KRCORE_SRC_KR_REPORT_H
