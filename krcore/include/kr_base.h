// kr_base.h — the root class of the framework's classes.
// KR_KorvaneClass has no data and one virtual operation, its destructor; copying goes through
// the derived classes' own copy constructors and assignments.
#ifndef KRCORE_KR_BASE_H
#define KRCORE_KR_BASE_H

#include "kr_globals.h"

// KR_KorvaneClass — the common root; deleting any framework object through it is safe.
class KR_API KR_KorvaneClass {
public:
    KR_KorvaneClass() {}

    virtual ~KR_KorvaneClass();

    // Assignment of the root part does nothing; derived classes copy their own members.
    KR_KorvaneClass& operator=(const KR_KorvaneClass&) { return *this; }

protected:
    // Only derived classes copy the root (it carries nothing).
    KR_KorvaneClass(const KR_KorvaneClass&) {}
};

#endif  // KRCORE_KR_BASE_H
