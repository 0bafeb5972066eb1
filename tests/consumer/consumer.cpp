// consumer.cpp — a host built against the installed package only.
#include <string.h>

#include "krcore.h"

// The installed headers carry the API only: none of the library's internal macros survives them,
#if defined(KRI_FAIL) || defined(KRI_FAIL_MSG) || defined(KRI_MSG) || defined(KRI_MSG_W)
#error "an installed header leaves a KRI_ report macro defined"
#endif
#if defined(KRI_FAILED) || defined(KRI_INLINE) || defined(KRI_UNIT)
#error "an installed header leaves KRI_FAILED, KRI_INLINE or KRI_UNIT defined"
#endif

// and no test hook is declared: a class of the hooks' namespace name clashes with the namespace.
struct krTesting {};

int main() {
    if (KR_init() > 2) return 1;
    KR_Version version(KR_getKorvaneVersion());
    int result = (version == "1.0.0" && strcmp(KR_getKorvaneVersion(), "1.0.0") == 0) ? 0 : 2;
    KR_close();
    return result;
}
