// kr_strarr.cpp — the fixed array of narrow strings.
#include "kr_alloc.h"
#include "kr_report.h"
#include "kr_str.h"

#define KRI_UNIT "src/kr_str"

namespace {

// --- KR_StringArr reporting ---

// Reports a failed KR_StringArr operation with its catalogue text (group 1) and "Memory error".
KR_RET_STATUS reportArrayFailure(int what, int line) {
    KR_reportErrorMsg(KRI_UNIT, static_cast<unsigned int>(line),
                      KR_msg(1, static_cast<unsigned int>(what)), "%s", KR_msg(0, 1));
    return krInternal::failAt(KR_RET_ERR_MEM, KRI_UNIT, static_cast<unsigned int>(line));
}

// to := from; false when the text could not be copied.
bool copyString(KR_String& to, const KR_String& from) {
    to = from;
    return static_cast<const char*>(from) == nullptr || static_cast<const char*>(to) != nullptr;
}

}  // namespace

// --- KR_StringArr ---

KR_StringArr::KR_StringArr(const char* text) {
    KR_setUserError(0);
    if (KRI_FAILED(initDataMembers(text == nullptr ? 0 : 1)) || text == nullptr) return;
    strings_[0] = text;
    if (static_cast<const char*>(strings_[0]) == nullptr) strArrFree(1);
}

KR_StringArr::KR_StringArr(unsigned int count) {
    KR_setUserError(0);
    initDataMembers(count);
}

KR_StringArr::KR_StringArr(const KR_StringArr& other) : KR_KorvaneClass(other) {
    KR_setUserError(0);
    if (KRI_FAILED(initDataMembers(other.count_))) return;
    for (unsigned int i = 0; i < count_; ++i) {
        if (!copyString(strings_[i], other.strings_[i])) {
            strArrFree(2);
            return;
        }
    }
}

KR_StringArr::~KR_StringArr() {
    cleanupDataMembers();
}

KR_StringArr& KR_StringArr::operator=(const KR_StringArr& other) {
    KR_setUserError(0);
    if (this == &other) return *this;
    KR_String* block = makeBlock(other.count_);
    bool ok = other.count_ == 0 || block != nullptr;
    for (unsigned int i = 0; ok && i < other.count_; ++i)
        ok = copyString(block[i], other.strings_[i]);
    if (!ok) {
        delete[] block;
        strArrFree(3);
        return *this;
    }
    delete[] strings_;
    strings_ = block;
    count_ = other.count_;
    error_ = 0;
    return *this;
}

KR_RET_STATUS KR_StringArr::strArrCat(const KR_StringArr& other) {
    KR_setUserError(0);
    if (other.count_ == 0) return KR_RET_TRUE;
    unsigned int count = count_ + other.count_;
    KR_String* block = makeBlock(count);
    bool ok = block != nullptr;
    for (unsigned int i = 0; ok && i < count_; ++i)
        ok = copyString(block[i], strings_[i]);
    for (unsigned int i = 0; ok && i < other.count_; ++i) {
        ok = copyString(block[count_ + i], other.strings_[i]);
    }
    if (!ok) {
        delete[] block;
        error_ = 1;
        return reportArrayFailure(4, __LINE__);
    }
    delete[] strings_;
    strings_ = block;
    count_ = count;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::strArrIns(unsigned int index, const char* text) {
    KR_setUserError(0);
    if (index > count_) index = count_;
    KR_String* block = makeBlock(count_ + 1);
    bool ok = block != nullptr;
    for (unsigned int i = 0; ok && i < count_; ++i) {
        ok = copyString(block[i < index ? i : i + 1], strings_[i]);
    }
    if (ok) {
        block[index] = text;
        ok = text == nullptr || static_cast<const char*>(block[index]) != nullptr;
    }
    if (!ok) {
        delete[] block;
        error_ = 1;
        return reportArrayFailure(5, __LINE__);
    }
    delete[] strings_;
    strings_ = block;
    ++count_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::strArrDel(unsigned int index) {
    KR_setUserError(0);
    if (index >= count_) {
        KRI_MSG(KR_msg(1, 6), KR_msg(0, 3), static_cast<int>(index), 0,
                static_cast<int>(count_) - 1);
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    KR_String* block = makeBlock(count_ - 1);
    bool ok = count_ == 1 || block != nullptr;
    for (unsigned int i = 0; ok && i < count_; ++i) {
        if (i != index) ok = copyString(block[i < index ? i : i - 1], strings_[i]);
    }
    if (!ok) {
        delete[] block;
        error_ = 1;
        return reportArrayFailure(6, __LINE__);
    }
    delete[] strings_;
    strings_ = block;
    --count_;
    return KR_RET_TRUE;
}

KR_String& KR_StringArr::operator[](unsigned int index) {
    KR_setUserError(0);
    if (index >= count_) {
        KRI_MSG(KR_msg(1, 7), KR_msg(0, 3), static_cast<int>(index), 0,
                static_cast<int>(count_) - 1);
        return krInternal::nullRef<KR_String>();
    }
    return strings_[index];
}

KR_RET_STATUS KR_StringArr::initDataMembers(unsigned int count) {
    initialised_ = 1;
    error_ = 0;
    count_ = 0;
    strings_ = nullptr;
    if (count == 0) return KR_RET_TRUE;
    strings_ = makeBlock(count);
    if (strings_ == nullptr) return strArrFree(1);
    count_ = count;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    strArrFree(0);
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::strArrFree(int what) {
    delete[] strings_;
    strings_ = nullptr;
    count_ = 0;
    if (what == 0) return KR_RET_TRUE;
    error_ = 1;
    return reportArrayFailure(what, __LINE__);
}

KR_String* KR_StringArr::makeBlock(unsigned int count) {
    if (count == 0) return nullptr;
    return krInternal::newArray<KR_String>(count);
}

KR_OStream& operator<<(KR_OStream& stream, const KR_StringArr& array) {
    for (unsigned int i = 0; i < array.strArrNum(); ++i) {
        stream << const_cast<KR_StringArr&>(array)[i] << "\n";
    }
    return stream;
}
