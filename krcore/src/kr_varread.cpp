// kr_varread.cpp — reading the tagged text form of variants and of variant arrays.
// The reader scans the file's buffer in place (kr_filecursor.h), reads every value into locals
// and changes the variant or array only when the whole entry arrived. The writer is
// kr_vartext.cpp.
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_cnumber.h"
#include "kr_filecursor.h"
#include "kr_report.h"
#include "kr_textbuffer.h"
#include "kr_utf16.h"
#include "kr_var.h"
#include "kr_varcore.h"
#include "kr_varobj.h"

#define KRI_UNIT "src/kr_var"

// A malformed entry: the report's text says what was wrong, its message what was wanted (or
// found) and in which file.
#define KRI_BAD_TEXT(in, text, detail) \
    KRI_FAIL_MSG(KR_RET_ERR_FILE, (text), "%s in %s\n", (detail), (in).fileName())

namespace {

using krInternal::FileCursor;

using krInternal::kVarTagNames;
constexpr int kTypeCount = sizeof kVarTagNames / sizeof kVarTagNames[0];

// A tag as read: "<" through ">", at most kMax bytes; empty when no such tag came.
struct Tag {
    static constexpr size_t kMax = 15;

    bool is(const char* expected) const { return strcmp(text, expected) == 0; }

    char text[kMax + 1];
    size_t length;
};

// The text file seen as the reader needs it: bytes, white space and tags. Bytes that lie in
// the file's buffer are scanned in place; where it runs out, one byte is read through the file,
// which fills the buffer again.
class TextIn {
public:
    explicit TextIn(KR_FileAscii& file) : file_(file) {}

    KR_FileAscii& file() { return file_; }

    const char* fileName() const {
        return file_.getFileName() != nullptr ? file_.getFileName() : "a text file";
    }

    // KR_RET_TRUE with the next byte, KR_RET_FALSE at the end of the file, or a failure.
    KR_RET_STATUS get(char& c) { return FileCursor::scanChar(file_, c); }

    KR_RET_STATUS unget(unsigned int count) { return file_.seekBack(count); }

    // Skips white space. KR_RET_TRUE when a byte follows, KR_RET_FALSE at the end of the file.
    KR_RET_STATUS skipSpace() {
        for (;;) {
            size_t count = 0;
            const char* data = FileCursor::buffered(file_, count);
            if (count == 0) {
                char c = '\0';
                KR_RET_STATUS status = get(c);
                if (status != KR_RET_TRUE) return status;
                if (!krInternal::isScanSpace(static_cast<unsigned char>(c))) return unget(1);
                continue;
            }
            size_t k = 0;
            while (k < count && krInternal::isScanSpace(static_cast<unsigned char>(data[k])))
                ++k;
            FileCursor::skip(file_, k);
            if (k < count) return KR_RET_TRUE;
        }
    }

    // Skips white space and reads the tag there. KR_RET_FALSE at the end of the file;
    // otherwise KR_RET_TRUE, with an empty tag when what follows is not a tag of at most
    // Tag::kMax bytes (what was read of it stays read).
    KR_RET_STATUS readTag(Tag& tag) {
        tag.length = 0;
        tag.text[0] = '\0';
        KR_RET_STATUS status = skipSpace();
        if (status != KR_RET_TRUE) return status;
        char c = '\0';
        for (size_t n = 0; n < Tag::kMax; ++n) {
            status = get(c);
            if (KRI_FAILED(status)) return status;
            if (status == KR_RET_FALSE || (n == 0) != (c == '<')) break;
            tag.text[n] = c;
            if (c == '>') {
                tag.text[n + 1] = '\0';
                tag.length = n + 1;
                return KR_RET_TRUE;
            }
        }
        tag.text[0] = '\0';
        return KR_RET_TRUE;
    }

    // Hands the bytes up to the next "<" (which stays to be read) to sink.append(data, count).
    // KR_RET_TRUE at the "<", KR_RET_FALSE at the end of the file.
    template <class Sink>
    KR_RET_STATUS readUntilTag(Sink& sink) {
        for (;;) {
            size_t count = 0;
            const char* data = FileCursor::buffered(file_, count);
            if (count == 0) {
                char c = '\0';
                KR_RET_STATUS status = get(c);
                if (status != KR_RET_TRUE) return status;
                if (c == '<') return unget(1);
                if (!sink.append(&c, 1)) return KRI_FAIL(KR_RET_ERR_MEM);
                continue;
            }
            const void* open = memchr(data, '<', count);
            size_t take = open == nullptr
                                  ? count
                                  : static_cast<size_t>(static_cast<const char*>(open) - data);
            if (!sink.append(data, take)) return KRI_FAIL(KR_RET_ERR_MEM);
            FileCursor::skip(file_, take);
            if (open != nullptr) return KR_RET_TRUE;
        }
    }

    // Reads the bytes up to endTag into text and reads endTag too. A "<" that does not start
    // endTag belongs to the text. KR_RET_FALSE when the file ends first.
    KR_RET_STATUS readUntilEndTag(const char* endTag, krInternal::TextBuffer<char>& text) {
        struct {
            krInternal::TextBuffer<char>* text;

            bool append(const char* data, size_t count) { return text->append(data, count); }
        } sink{&text};

        for (;;) {
            KR_RET_STATUS status = readUntilTag(sink);
            if (status != KR_RET_TRUE) return status;
            char c = '\0';
            get(c);  // the "<" found
            unsigned int k = 1;
            for (; endTag[k] != '\0'; ++k) {
                status = get(c);
                if (status != KR_RET_TRUE) return status;
                if (c != endTag[k]) break;
            }
            if (endTag[k] == '\0') return KR_RET_TRUE;
            // Read again from the byte after the "<", which may start the end tag itself.
            status = unget(k);
            if (KRI_FAILED(status)) return status;
            if (!text.append('<')) return KRI_FAIL(KR_RET_ERR_MEM);
        }
    }

private:
    KR_FileAscii& file_;
};

// A short value (a number, a name) without the white space around it. A longer text is
// marked too long; its bytes are read all the same.
struct ShortText {
    static constexpr size_t kMax = 400;

    bool append(const char* data, size_t count) {
        if (count > kMax - length) {
            tooLong = true;
            count = kMax - length;
        }
        memcpy(text + length, data, count);
        length += count;
        return true;
    }

    // Drops the white space at both ends and terminates the text.
    void trim() {
        size_t start = 0;
        while (start < length && krInternal::isScanSpace(static_cast<unsigned char>(text[start])))
            ++start;
        while (length > start &&
               krInternal::isScanSpace(static_cast<unsigned char>(text[length - 1])))
            --length;
        memmove(text, text + start, length - start);
        length -= start;
        text[length] = '\0';
    }

    char text[kMax + 1];
    size_t length = 0;
    bool tooLong = false;
};

// What an integer type takes: the greatest magnitude below and above zero, and the letter that
// its format writes after the digits ("%uc", "%ud"), which the reader may find there.
struct WholeRange {
    unsigned long long belowZero;
    unsigned long long aboveZero;
    char letter;
};

enum NumberCheck { kNumberOk, kNotANumber, kOutOfRange };

// A whole number: an optional sign, digits and the range's letter, nothing else. bits := the
// value's two's-complement image.
NumberCheck parseWhole(const char* text, const WholeRange& range, unsigned long long& bits) {
    bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    if (*text < '0' || *text > '9') return kNotANumber;
    unsigned long long magnitude = 0;
    bool overflow = false;
    for (; *text >= '0' && *text <= '9'; ++text) {
        unsigned int digit = static_cast<unsigned int>(*text - '0');
        if (magnitude > (ULLONG_MAX - digit) / 10) overflow = true;
        magnitude = magnitude * 10 + digit;
    }
    if (range.letter != '\0' && *text == range.letter) ++text;
    if (*text != '\0') return kNotANumber;
    if (overflow || magnitude > (negative ? range.belowZero : range.aboveZero)) return kOutOfRange;
    bits = negative ? 0 - magnitude : magnitude;
    return kNumberOk;
}

WholeRange wholeRange(KR_VAR_TYPE type) {
    const unsigned long long belowLong = static_cast<unsigned long long>(LONG_MAX) + 1;
    switch (type) {
        case KR_VAR_UCHAR:
            return {0, UCHAR_MAX, 'c'};
        case KR_VAR_USHORT:
            return {0, USHRT_MAX, 'd'};
        case KR_VAR_SHORT:
            return {static_cast<unsigned long long>(SHRT_MAX) + 1, SHRT_MAX, '\0'};
        case KR_VAR_UINT:
            return {0, UINT_MAX, '\0'};
        case KR_VAR_INT:
            return {static_cast<unsigned long long>(INT_MAX) + 1, INT_MAX, '\0'};
        case KR_VAR_ULONG:
            // Written with "%ld": the values above LONG_MAX come negative and read back as their
            // image in this platform's unsigned long.
            return {belowLong, ULONG_MAX, '\0'};
        default:
            return {belowLong, LONG_MAX, '\0'};
    }
}

// The characters a "%f" text is made of ("inf" and "nan" included).
bool isFixedText(const char* text) {
    return *text != '\0' && strspn(text, "0123456789+-.eEinfatyINFATY") == strlen(text);
}

// A "%p" text: hexadecimal digits with or without "0x", or "(nil)" for null.
bool parsePointer(const char* text, uintptr_t& value) {
    value = 0;
    if (strcmp(text, "(nil)") == 0) return true;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
    if (*text == '\0') return false;
    for (; *text != '\0'; ++text) {
        int digit = *text >= '0' && *text <= '9'   ? *text - '0'
                    : *text >= 'a' && *text <= 'f' ? *text - 'a' + 10
                    : *text >= 'A' && *text <= 'F' ? *text - 'A' + 10
                                                   : -1;
        if (digit < 0 || value > (UINTPTR_MAX >> 4)) return false;
        value = (value << 4) | static_cast<uintptr_t>(digit);
    }
    return true;
}

// A value read and not yet stored: the type and the value's bytes as the variant keeps them. A
// text or object it holds is released with it unless a variant took it over (disown).
struct Parsed {
    Parsed() = default;
    Parsed(const Parsed&) = delete;
    Parsed& operator=(const Parsed&) = delete;

    ~Parsed() {
        if (type == KR_VAR_STRING || type == KR_VAR_STRINGW) {
            krInternal::freeBlock(as<void*>());
        } else if (type == KR_VAR_PUBOBJ) {
            krInternal::releasePubObj(as<KR_PubObjVar*>());
        }
    }

    template <class T>
    void set(KR_VAR_TYPE t, T value) {
        type = t;
        bits = 0;
        memcpy(&bits, &value, sizeof value);
    }

    template <class T>
    T as() const {
        T value;
        memcpy(&value, &bits, sizeof value);
        return value;
    }

    void disown() { type = KR_VAR_WILD; }

    KR_VAR_TYPE type = KR_VAR_WILD;
    unsigned long long bits = 0;  // the low-order bytes hold the value, as in the variant
};

// Skips white space and reads the tag expected there.
KR_RET_STATUS expectTag(TextIn& in, const char* expected) {
    Tag tag;
    KR_RET_STATUS status = in.readTag(tag);
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_FALSE) {
        return KRI_BAD_TEXT(in, "KR_Var text: unexpected end of file", expected);
    }
    if (!tag.is(expected)) return KRI_BAD_TEXT(in, "KR_Var text: tag missing", expected);
    return KR_RET_TRUE;
}

// A short content between two tags, the white space around it dropped.
KR_RET_STATUS readShort(TextIn& in, const char* startTag, const char* endTag, ShortText& text) {
    KR_RET_STATUS status = expectTag(in, startTag);
    if (KRI_FAILED(status)) return status;
    status = in.readUntilTag(text);
    if (KRI_FAILED(status)) return status;
    text.trim();
    return expectTag(in, endTag);
}

KR_RET_STATUS readWhole(TextIn& in, KR_VAR_TYPE type, Parsed& out) {
    ShortText text;
    KR_RET_STATUS status = readShort(in, "<value>", "</value>", text);
    if (KRI_FAILED(status)) return status;
    unsigned long long bits = 0;
    NumberCheck check = text.tooLong ? kNotANumber : parseWhole(text.text, wholeRange(type), bits);
    if (check == kNotANumber) return KRI_BAD_TEXT(in, "KR_Var text: not a number", text.text);
    if (check == kOutOfRange) {
        return KRI_BAD_TEXT(in, "KR_Var text: number out of range", kVarTagNames[type]);
    }
    // The low-order bytes of the two's-complement image are the value of every width.
    switch (type) {
        case KR_VAR_UCHAR:
            out.set(type, static_cast<unsigned char>(bits));
            break;
        case KR_VAR_SHORT:
        case KR_VAR_USHORT:
            out.set(type, static_cast<unsigned short>(bits));
            break;
        case KR_VAR_INT:
        case KR_VAR_UINT:
            out.set(type, static_cast<unsigned int>(bits));
            break;
        default:
            out.set(type, static_cast<unsigned long>(bits));
            break;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS readFixed(TextIn& in, KR_VAR_TYPE type, Parsed& out) {
    ShortText text;
    KR_RET_STATUS status = readShort(in, "<value>", "</value>", text);
    if (KRI_FAILED(status)) return status;
    double value = 0.0;
    if (text.tooLong || !isFixedText(text.text) || !krInternal::scanDouble(text.text, value)) {
        return KRI_BAD_TEXT(in, "KR_Var text: not a number", text.text);
    }
    if (type == KR_VAR_FLOAT) {
        out.set(type, static_cast<float>(value));
    } else {
        out.set(type, value);
    }
    return KR_RET_TRUE;
}

// Exactly one byte after "<value>", whatever it is.
KR_RET_STATUS readChar(TextIn& in, Parsed& out) {
    KR_RET_STATUS status = expectTag(in, "<value>");
    if (KRI_FAILED(status)) return status;
    char c = '\0';
    status = in.get(c);
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_FALSE) {
        return KRI_BAD_TEXT(in, "KR_Var text: unexpected end of file", "a character");
    }
    out.set(KR_VAR_CHAR, c);
    return expectTag(in, "</value>");
}

KR_RET_STATUS readString(TextIn& in, Parsed& out) {
    KR_RET_STATUS status = expectTag(in, "<value>");
    if (KRI_FAILED(status)) return status;
    krInternal::TextBuffer<char> text;
    status = in.readUntilEndTag("</value>", text);
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_FALSE) {
        return KRI_BAD_TEXT(in, "KR_Var text: unexpected end of file", "</value>");
    }
    // An empty text is the null string, as in the string classes.
    out.set(KR_VAR_STRING, text.release());
    return KR_RET_TRUE;
}

// The bytes of a wide text: signed or unsigned byte numbers amid white space, as many as the
// length says. The block grows as the bytes arrive, whatever length the file claims.
KR_RET_STATUS readWide(TextIn& in, Parsed& out) {
    ShortText length;
    KR_RET_STATUS status = readShort(in, "<length>", "</length>", length);
    if (KRI_FAILED(status)) return status;
    unsigned long long claimed = 0;
    const WholeRange lengthRange = {0, INT_MAX, '\0'};
    if (length.tooLong || parseWhole(length.text, lengthRange, claimed) != kNumberOk) {
        return KRI_BAD_TEXT(in, "KR_Var text: bad wide text length", length.text);
    }
    if (claimed % 2 != 0) return KRI_BAD_TEXT(in, "KR_Var text: odd wide text length", length.text);
    status = expectTag(in, "<value>");
    if (KRI_FAILED(status)) return status;
    krInternal::TextBuffer<char> bytes;
    const WholeRange byteRange = {128, 255, '\0'};
    for (;;) {
        status = in.skipSpace();
        if (KRI_FAILED(status)) return status;
        if (status == KR_RET_FALSE) {
            return KRI_BAD_TEXT(in, "KR_Var text: unexpected end of file", "</value>");
        }
        char token[8];
        size_t n = 0;
        char c = '\0';
        for (;;) {
            status = in.get(c);
            if (KRI_FAILED(status)) return status;
            if (status == KR_RET_FALSE || krInternal::isScanSpace(static_cast<unsigned char>(c))) {
                break;
            }
            if (c == '<') {
                status = in.unget(1);
                if (KRI_FAILED(status)) return status;
                break;
            }
            if (n + 1 == sizeof token) {
                token[n] = '\0';
                return KRI_BAD_TEXT(in, "KR_Var text: not a byte", token);
            }
            token[n++] = c;
        }
        if (n == 0) break;  // at the "<" of the end tag
        token[n] = '\0';
        unsigned long long value = 0;
        NumberCheck check = parseWhole(token, byteRange, value);
        if (check != kNumberOk) return KRI_BAD_TEXT(in, "KR_Var text: not a byte", token);
        if (bytes.length() == claimed) {
            return KRI_BAD_TEXT(in, "KR_Var text: more bytes than the wide text length", token);
        }
        if (!bytes.append(static_cast<char>(value))) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    status = expectTag(in, "</value>");
    if (KRI_FAILED(status)) return status;
    if (bytes.length() != claimed) {
        return KRI_BAD_TEXT(in, "KR_Var text: fewer bytes than the wide text length", length.text);
    }
    size_t units = bytes.length() / 2;
    wchar_t* text = nullptr;
    if (units > 0) {
        text = static_cast<wchar_t*>(krInternal::allocBlock((units + 1) * sizeof(wchar_t)));
        if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        const unsigned char* data = reinterpret_cast<const unsigned char*>(bytes.text());
        text[krInternal::readUtf16LE(data, units, text)] = L'\0';
    }
    out.set(KR_VAR_STRINGW, text);
    return KR_RET_TRUE;
}

KR_RET_STATUS readPointer(TextIn& in, Parsed& out) {
    ShortText text;
    KR_RET_STATUS status = readShort(in, "<value>", "</value>", text);
    if (KRI_FAILED(status)) return status;
    uintptr_t value = 0;
    if (text.tooLong || !parsePointer(text.text, value)) {
        return KRI_BAD_TEXT(in, "KR_Var text: not a pointer", text.text);
    }
    out.set(KR_VAR_PTR, reinterpret_cast<void*>(value));
    return KR_RET_TRUE;
}

// "<null>TRUE</null>", or "<null>FALSE</null>", the class identifier and the object's own text.
KR_RET_STATUS readPubObj(TextIn& in, KR_Version& version, Parsed& out) {
    KR_RET_STATUS status = expectTag(in, "<value>");
    if (KRI_FAILED(status)) return status;
    ShortText isNull;
    status = readShort(in, "<null>", "</null>", isNull);
    if (KRI_FAILED(status)) return status;
    KR_PubObjVar* object = nullptr;
    if (strcmp(isNull.text, "FALSE") == 0) {
        ShortText guid;
        status = readShort(in, "<guid>", "</guid>", guid);
        if (KRI_FAILED(status)) return status;
        if (guid.tooLong) return KRI_BAD_TEXT(in, "KR_Var text: class identifier too long", "");
        status = krInternal::restorePubObj(version, in.file(), guid.text, object);
        if (KRI_FAILED(status)) return status;
    } else if (strcmp(isNull.text, "TRUE") != 0) {
        return KRI_BAD_TEXT(in, "KR_Var text: <null> is neither TRUE nor FALSE", isNull.text);
    }
    out.set(KR_VAR_PUBOBJ, object);
    return expectTag(in, "</value>");
}

// The rest of a variant after its "<var>": nothing (Wild) or the type and the value, then
// "</var>".
KR_RET_STATUS readVarBody(TextIn& in, KR_Version& version, Parsed& out) {
    Tag tag;
    KR_RET_STATUS status = in.readTag(tag);
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_FALSE) {
        return KRI_BAD_TEXT(in, "KR_Var text: unexpected end of file", "<type>");
    }
    if (tag.is("</var>")) {
        out.set(KR_VAR_WILD, 0);
        return KR_RET_TRUE;
    }
    if (!tag.is("<type>")) return KRI_BAD_TEXT(in, "KR_Var text: tag missing", "<type>");
    ShortText name;
    status = in.readUntilTag(name);
    if (KRI_FAILED(status)) return status;
    name.trim();
    int type = KR_VAR_UCHAR;
    while (type < kTypeCount && strcmp(kVarTagNames[type], name.text) != 0)
        ++type;
    if (name.tooLong || type == kTypeCount) {
        return KRI_BAD_TEXT(in, "KR_Var text: unknown type name", name.text);
    }
    status = expectTag(in, "</type>");
    if (KRI_FAILED(status)) return status;
    switch (static_cast<KR_VAR_TYPE>(type)) {
        case KR_VAR_CHAR:
            status = readChar(in, out);
            break;
        case KR_VAR_FLOAT:
        case KR_VAR_DOUBLE:
            status = readFixed(in, static_cast<KR_VAR_TYPE>(type), out);
            break;
        case KR_VAR_STRING:
            status = readString(in, out);
            break;
        case KR_VAR_STRINGW:
            status = readWide(in, out);
            break;
        case KR_VAR_PTR:
            status = readPointer(in, out);
            break;
        case KR_VAR_PUBOBJ:
            status = readPubObj(in, version, out);
            break;
        default:
            status = readWhole(in, static_cast<KR_VAR_TYPE>(type), out);
            break;
    }
    if (KRI_FAILED(status)) return status;
    return expectTag(in, "</var>");
}

}  // namespace

// --- KR_Var ---

KR_RET_STATUS KR_Var::restore(KR_Version& version, KR_FileAscii& file) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    TextIn in(file);
    Tag tag;
    KR_RET_STATUS status = in.readTag(tag);
    if (status != KR_RET_TRUE) return status;
    if (!tag.is("<var>")) return KRI_BAD_TEXT(in, "KR_Var text: tag missing", "<var>");
    Parsed parsed;
    status = readVarBody(in, version, parsed);
    if (KRI_FAILED(status)) return status;
    // The type read replaces the old one whatever the lock; lock and limit stay.
    releaseValue();
    value_.bits = parsed.bits;
    type_ = parsed.type;
    parsed.disown();
    cutToLimit();
    return KR_RET_TRUE;
}

// --- KR_VarArr ---

KR_RET_STATUS KR_VarArr::restore(KR_Version& version, KR_FileAscii& file) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    TextIn in(file);
    Tag tag;
    KR_RET_STATUS status = in.readTag(tag);
    if (status != KR_RET_TRUE) return status;
    if (!tag.is("<vararr>")) return KRI_BAD_TEXT(in, "KR_VarArr text: tag missing", "<vararr>");
    KR_Array<KR_Var> staged;
    unsigned int count = 0;
    for (;;) {
        status = in.readTag(tag);
        if (KRI_FAILED(status)) return status;
        if (status == KR_RET_FALSE) {
            return KRI_BAD_TEXT(in, "KR_VarArr text: unexpected end of file", "</vararr>");
        }
        if (tag.is("</vararr>")) break;
        if (!tag.is("<var>")) {
            return KRI_BAD_TEXT(in, "KR_VarArr text: tag missing", "<var> or </vararr>");
        }
        status = growStaged(staged, count, UINT_MAX);
        if (KRI_FAILED(status)) return status;
        Parsed parsed;
        status = readVarBody(in, version, parsed);
        if (KRI_FAILED(status)) return status;
        // The slot is a fresh Wild variant without a limit: it takes the value as read.
        KR_Var& slot = staged[count++];
        slot.value_.bits = parsed.bits;
        slot.type_ = parsed.type;
        parsed.disown();
    }
    return adoptStaged(staged, count);
}
