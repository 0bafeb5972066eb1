// kr_vartext.cpp — writing the tagged text form of variants and of variant arrays.
// A variant is "<var>", "<type>NAME</type>", its value lines and "</var>"; an array is
// "<vararr>", its elements and "</vararr>". The writer collects the lines and hands them to the
// file's print in a few large pieces. The reader is kr_varread.cpp.
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <charconv>

#include "kr_cnumber.h"
#include "kr_report.h"
#include "kr_utf16.h"
#include "kr_var.h"
#include "kr_varcore.h"
#include "kr_varobj.h"

#define KRI_UNIT "src/kr_var"

namespace {

using krInternal::kVarTagNames;
constexpr int kTypeCount = sizeof kVarTagNames / sizeof kVarTagNames[0];

// A wide text's bytes go 41 to the first line and 40 to every later one.
constexpr unsigned int kBytesPerLine = 40;

// Collects text and hands it to the file's print in pieces that fit the print's own stack
// buffer (511 bytes and the terminator), so that printing allocates nothing. The first print
// that fails ends the write: its status is kept and everything after it is dropped.
class TextOut {
public:
    explicit TextOut(KR_FileAscii& file) : file_(file), length_(0), status_(KR_RET_TRUE) {}

    template <size_t N>
    void put(const char (&literal)[N]) {
        putText(literal, N - 1);
    }

    void putText(const char* text, size_t length) {
        while (length > 0 && !KRI_FAILED(status_)) {
            if (length_ == kCapacity) flush();
            size_t take = kCapacity - length_ < length ? kCapacity - length_ : length;
            memcpy(buffer_ + length_, text, take);
            length_ += take;
            text += take;
            length -= take;
        }
    }

    // A zero byte cannot pass through "%s": it goes out on its own with "%c".
    void putByte(char c) {
        if (c != '\0') {
            putText(&c, 1);
            return;
        }
        flush();
        if (!KRI_FAILED(status_)) fail(file_.print("%c", c));
    }

    template <class Integer>
    void putNumber(Integer value) {
        if (kCapacity - length_ < kNumberMax) flush();
        std::to_chars_result r = std::to_chars(buffer_ + length_, buffer_ + kCapacity, value);
        length_ = static_cast<size_t>(r.ptr - buffer_);
    }

    // "%f" in the C locale.
    void putFixed(double value) {
        char text[krInternal::kFixedTextMax];
        putText(text, krInternal::formatFixed(value, text));
    }

    KR_RET_STATUS flush() {
        if (length_ > 0 && !KRI_FAILED(status_)) {
            fail(file_.print("%.*s", static_cast<int>(length_), buffer_));
        }
        length_ = 0;
        return status_;
    }

    void fail(KR_RET_STATUS status) {
        if (KRI_FAILED(status)) status_ = status;
    }

    KR_RET_STATUS status() const { return status_; }

    KR_FileAscii& file() { return file_; }

private:
    static constexpr size_t kCapacity = 511;
    static constexpr size_t kNumberMax = 24;  // the digits and sign of any 64-bit number

    KR_FileAscii& file_;
    char buffer_[kCapacity];
    size_t length_;
    KR_RET_STATUS status_;
};

// The UTF-16LE bytes of a wide text, each as a signed number, in lines of kBytesPerLine.
void putWideBytes(TextOut& out, const wchar_t* text) {
    size_t length = text == nullptr ? 0 : wcslen(text);
    size_t count = 2 * krInternal::utf16Length(text, length);
    out.put("<length>");
    out.putNumber(static_cast<int>(count));
    out.put("</length>\n<value>\n");
    size_t index = 0;
    for (size_t i = 0; i < length; ++i) {
        unsigned char bytes[4];
        size_t n = krInternal::writeUtf16LE(text + i, 1, bytes);
        for (size_t k = 0; k < n; ++k, ++index) {
            out.putNumber(static_cast<int>(static_cast<signed char>(bytes[k])));
            if (index + 1 == count) break;
            if (index > 0 && index % kBytesPerLine == 0) {
                out.put("\n");
            } else {
                out.put(" ");
            }
        }
    }
    out.put("\n</value>\n");
}

KR_RET_STATUS putPubObj(TextOut& out, KR_Version& version, KR_PubObjVar* object) {
    if (object == nullptr) {
        out.put("<value>\n<null>TRUE</null>\n</value>\n");
        return out.status();
    }
    out.put("<value>\n<null>FALSE</null>\n");
    // The object writes its own lines through the file.
    KR_RET_STATUS status = out.flush();
    if (KRI_FAILED(status)) return status;
    status = krInternal::persistPubObj(version, out.file(), object);
    out.fail(status);
    out.put("</value>\n");
    return out.status();
}

// The lines of one variant. Everything the text needs is public.
KR_RET_STATUS putVar(TextOut& out, KR_Version& version, const KR_Var& v) {
    int type = v.varType();
    out.put("<var>\n");
    if (type <= KR_VAR_WILD || type >= kTypeCount) {
        out.put("</var>\n");
        return out.status();
    }
    out.put("<type>");
    out.putText(kVarTagNames[type], strlen(kVarTagNames[type]));
    out.put("</type>\n");
    if (type == KR_VAR_STRINGW) {
        putWideBytes(out, v.wstr());
    } else if (type == KR_VAR_PUBOBJ) {
        putPubObj(out, version, v.objptr());
    } else {
        out.put("<value>");
        switch (type) {
            case KR_VAR_UCHAR:  // "%uc": the number, then the letter
                out.putNumber(static_cast<unsigned int>(v.uc()));
                out.put("c");
                break;
            case KR_VAR_CHAR:
                out.putByte(v.c());
                break;
            case KR_VAR_USHORT:  // "%ud"
                out.putNumber(static_cast<unsigned int>(v.us()));
                out.put("d");
                break;
            case KR_VAR_SHORT:
                out.putNumber(static_cast<int>(v.s()));
                break;
            case KR_VAR_UINT:
                out.putNumber(v.ui());
                break;
            case KR_VAR_INT:
                out.putNumber(v.i());
                break;
            case KR_VAR_ULONG:  // "%ld" as for long: values above LONG_MAX come out negative
                out.putNumber(static_cast<long>(v.ul()));
                break;
            case KR_VAR_LONG:
                out.putNumber(v.l());
                break;
            case KR_VAR_FLOAT:
                out.putFixed(v.f());
                break;
            case KR_VAR_DOUBLE:
                out.putFixed(v.d());
                break;
            case KR_VAR_STRING:
                if (v.str() != nullptr) out.putText(v.str(), strlen(v.str()));
                break;
            default: {  // the pointer
                char text[40];
                int n = snprintf(text, sizeof text, "%p", v.ptr());
                out.putText(text, n > 0 ? static_cast<size_t>(n) : 0);
                break;
            }
        }
        out.put("</value>\n");
    }
    out.put("</var>\n");
    return out.status();
}

}  // namespace

// --- KR_Var ---

KR_RET_STATUS KR_Var::persist(KR_Version& version, KR_FileAscii& file) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    TextOut out(file);
    putVar(out, version, *this);
    return out.flush();
}

// --- KR_VarArr ---

KR_RET_STATUS KR_VarArr::persist(KR_Version& version, KR_FileAscii& file) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    TextOut out(file);
    out.put("<vararr>\n");
    for (unsigned int i = 0; i < numElems_ && !KRI_FAILED(out.status()); ++i) {
        putVar(out, version, KR_Array<KR_Var>::operator[](i));
    }
    out.put("</vararr>\n");
    return out.flush();
}
