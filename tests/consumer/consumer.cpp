// consumer.cpp — a host built against the installed package only.
#include <string.h>

#include "krcore.h"

int main() {
    if (KRI_FAILED(KR_init())) return 1;
    KR_Version version(KR_getKorvaneVersion());
    int result = (version == "1.0.0" && strcmp(KR_getKorvaneVersion(), "1.0.0") == 0) ? 0 : 2;
    KR_close();
    return result;
}
