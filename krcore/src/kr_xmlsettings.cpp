// kr_xmlsettings.cpp — settings files: the setting record, reading, saving, the list lookups.
#include <errno.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <wchar.h>

#include <atomic>
#include <utility>

#include "kr_alloc.h"
#include "kr_filecursor.h"
#include "kr_locale.h"
#include "kr_platform.h"
#include "kr_report.h"
#include "kr_strcore.h"
#include "kr_xml.h"
#include "kr_xmlentry.h"

#define KRI_UNIT "src/kr_xml"

namespace {

using krInternal::FileCursor;

bool given(const char* tag) {
    return tag != nullptr && tag[0] != '\0';
}

// A tag that the reader takes back as the opening tag of an entry: "<", at least one character,
// ">", no bracket inside, and no "/" after the "<" (that would read as a closing tag).
bool settingTag(const char* tag) {
    if (tag == nullptr || tag[0] != '<' || tag[1] == '/' || tag[1] == '>' || tag[1] == '\0') {
        return false;
    }
    size_t i = 1;
    while (tag[i] != '\0' && tag[i] != '<' && tag[i] != '>')
        ++i;
    return tag[i] == '>' && tag[i + 1] == '\0';
}

bool holdsOpenBracket(const wchar_t* value) {
    if (value == nullptr) return false;
    for (; *value != L'\0'; ++value) {
        if (*value == L'<') return true;
    }
    return false;
}

// The arguments that every settings-file function checks first.
KR_RET_STATUS checkArguments(KR_FileAscii& file,
                             const char* startTag,
                             const char* endTag,
                             KR_Array<KR_XmlSetting>& settings) {
    if (!settings.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!file.isOpen() || !given(startTag) || !given(endTag)) return KRI_FAIL(KR_RET_ERR_ARG);
    return KR_RET_TRUE;
}

// The first setting with tag (exact): its index, or settings.numElems().
unsigned int findSetting(const char* tag, KR_Array<KR_XmlSetting>& settings) {
    unsigned int n = settings.numElems();
    for (unsigned int i = 0; i < n; ++i) {
        const char* text = settings[i].tag;
        if (text != nullptr && strcmp(text, tag) == 0) return i;
    }
    return n;
}

// The settings of a file as they are read: the blocks that the entry reader handed out, in a
// table that grows by doubling (the library's array keeps no spare room, so appending one setting
// at a time would copy the whole list each time). The blocks are freed unless handed over.
class Collected {
public:
    Collected() = default;
    Collected(const Collected&) = delete;
    Collected& operator=(const Collected&) = delete;

    ~Collected() {
        for (size_t i = 0; i < count_; ++i) {
            krInternal::freeBlock(entries_[i].tag);
            krInternal::freeBlock(entries_[i].value);
        }
        krInternal::freeBlock(entries_);
    }

    // Takes the two blocks over, also when it fails (KR_RET_ERR_MEM): they are then freed.
    KR_RET_STATUS add(char* tag, wchar_t* value) {
        if (count_ == capacity_) {
            // A list holds at most UINT_MAX settings.
            size_t capacity = capacity_ < 64 ? 64 : capacity_ * 2;
            bool fits = count_ < UINT_MAX && capacity <= SIZE_MAX / sizeof(Entry);
            Entry* grown = fits ? static_cast<Entry*>(krInternal::reallocBlock(
                                          entries_, capacity * sizeof(Entry)))
                                : nullptr;
            if (grown == nullptr) {
                krInternal::freeBlock(tag);
                krInternal::freeBlock(value);
                return KRI_FAIL(KR_RET_ERR_MEM);
            }
            entries_ = grown;
            capacity_ = capacity;
        }
        entries_[count_++] = Entry{tag, value};
        return KR_RET_TRUE;
    }

    // Gives the settings to the list, whose old elements are dropped. Only the list's new block
    // can fail (KR_RET_ERR_MEM), and then the list stays as it was.
    KR_RET_STATUS handOver(KR_Array<KR_XmlSetting>& settings) {
        unsigned int kept = settings.numElems();
        KR_RET_STATUS status = settings.reallocate(static_cast<unsigned int>(count_));
        if (KRI_FAILED(status)) return status;
        for (size_t i = 0; i < count_; ++i) {
            KR_XmlSetting& setting = settings[static_cast<unsigned int>(i)];
            if (i < kept) {
                setting.tag.assignPtr(entries_[i].tag);
                setting.value.assignPtr(entries_[i].value);
            } else {
                // Settings beyond the old length are new and empty: they take the texts as
                // they are, without the assignment's bookkeeping.
                krInternal::adoptIntoEmpty(setting.tag, entries_[i].tag);
                krInternal::adoptIntoEmpty(setting.value, entries_[i].value);
            }
        }
        count_ = 0;
        return KR_RET_TRUE;
    }

private:
    struct Entry {
        char* tag;
        wchar_t* value;
    };

    Entry* entries_ = nullptr;  // capacity_ entries (C allocator); count_ in use
    size_t count_ = 0;
    size_t capacity_ = 0;
};

// Text for a file, gathered in a chunk on the stack and handed to the file a chunk at a time:
// the same bytes as print("%s") and printW(L"%ls") write, without a format to parse per piece.
// After a failed write nothing more is written and every call answers that status.
class ChunkWriter {
public:
    explicit ChunkWriter(KR_FileAscii& file) : file_(file) {}

    ChunkWriter(const ChunkWriter&) = delete;
    ChunkWriter& operator=(const ChunkWriter&) = delete;

    void put(const char* bytes, size_t count) {
        while (count > 0 && !KRI_FAILED(status_)) {
            if (used_ == sizeof chunk_) flush();
            size_t take = sizeof chunk_ - used_ < count ? sizeof chunk_ - used_ : count;
            memcpy(chunk_ + used_, bytes, take);
            used_ += take;
            bytes += take;
            count -= take;
        }
    }

    void put(const char* text) { put(text, strlen(text)); }

    // In the locale's multibyte encoding, which the caller has checked that text converts to.
    // ASCII stands for itself, as the file's wide reads take it.
    void putWide(const wchar_t* text) {
        mbstate_t state;
        memset(&state, 0, sizeof state);
        for (; *text != L'\0' && !KRI_FAILED(status_); ++text) {
            if (sizeof chunk_ - used_ < MB_LEN_MAX) flush();
            if (static_cast<unsigned long>(*text) < 0x80) {
                chunk_[used_++] = static_cast<char>(*text);
            } else {
                size_t n = wcrtomb(chunk_ + used_, *text, &state);
                if (n != static_cast<size_t>(-1)) used_ += n;
            }
        }
    }

    KR_RET_STATUS flush() {
        if (used_ > 0 && !KRI_FAILED(status_)) status_ = FileCursor::write(file_, chunk_, used_);
        used_ = 0;
        return status_;
    }

private:
    KR_FileAscii& file_;
    char chunk_[8192];
    size_t used_ = 0;
    KR_RET_STATUS status_ = KR_RET_TRUE;
};

// True when the locale can encode every character of text (null included).
bool encodable(const wchar_t* text) {
    if (text == nullptr) return true;
    const wchar_t* p = text;
    while (*p != L'\0' && static_cast<unsigned long>(*p) < 0x80)
        ++p;
    return *p == L'\0' || krInternal::localeLength<char>(p) != krInternal::kNoLocaleForm;
}

// A name beside fileName for the file that is written first: "<fileName>.tmp<pid>-<n>", on
// the heap (freeBlock); null when memory runs out.
wchar_t* temporaryName(const wchar_t* fileName) {
    static std::atomic<unsigned long> serial{0};
    unsigned long n = serial.fetch_add(1);
    size_t length = wcslen(fileName);
    size_t size = length + 64;
    wchar_t* name = static_cast<wchar_t*>(krInternal::allocZeroed(size, sizeof(wchar_t)));
    if (name == nullptr) return nullptr;
    swprintf(name, size, L"%ls.tmp%lu-%lu", fileName, krPlatform::processId(), n);
    return name;
}

}  // namespace

// --- KR_XmlSetting ---

KR_XmlSetting::KR_XmlSetting() {}

KR_XmlSetting::KR_XmlSetting(const KR_XmlSetting& other) : tag(other.tag), value(other.value) {}

KR_XmlSetting::KR_XmlSetting(KR_XmlSetting&& other) noexcept
    : tag(std::move(other.tag)), value(std::move(other.value)) {}

KR_XmlSetting::~KR_XmlSetting() {}

KR_XmlSetting& KR_XmlSetting::operator=(const KR_XmlSetting& other) {
    tag = other.tag;
    value = other.value;
    return *this;
}

KR_XmlSetting& KR_XmlSetting::operator=(KR_XmlSetting&& other) noexcept {
    tag = std::move(other.tag);
    value = std::move(other.value);
    return *this;
}

bool KR_XmlSetting::operator==(const KR_XmlSetting& other) const {
    return tag == other.tag && value == other.value;
}

void KR_XmlSetting::init() {
    tag.assignPtr(nullptr);
    value.assignPtr(nullptr);
}

// --- Settings files ---

KR_RET_STATUS KR_xmlReadSettingsFile(KR_FileAscii& file,
                                     const char* startTag,
                                     const char* endTag,
                                     KR_Array<KR_XmlSetting>& settings) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkArguments(file, startTag, endTag, settings);
    if (KRI_FAILED(status)) return status;
    KR_String tag;
    status = KR_xmlReadTag(tag, file, startTag);
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_FALSE) {
        settings.delAll();
        return KR_RET_FALSE;
    }
    Collected collected;
    for (;;) {
        long long start = 0;
        status = FileCursor::getPos(file, start);
        if (KRI_FAILED(status)) return status;
        char* entryTag = nullptr;
        wchar_t* entryValue = nullptr;
        status = krInternal::xmlReadEntryW(file, entryTag, entryValue);
        if (KRI_FAILED(status)) return status;
        // An entry whose tag reads as a closing tag may only be the end tag.
        if (status == KR_RET_TRUE && entryTag[1] != '/') {
            status = collected.add(entryTag, entryValue);
            if (KRI_FAILED(status)) return status;
            continue;
        }
        krInternal::freeBlock(entryTag);
        krInternal::freeBlock(entryValue);
        // No entry starts here: the end tag, or the file is malformed.
        status = file.setPos(start);
        if (KRI_FAILED(status)) return status;
        status = KR_xmlReadEndTag(tag, file, endTag);
        if (KRI_FAILED(status)) return status;
        if (status == KR_RET_TRUE) break;
        return KRI_FAIL_MSG(KR_RET_ERR_GEN, "KR_xmlReadSettingsFile: malformed entry",
                            "at byte %lld\n", start);
    }
    return collected.handOver(settings);
}

KR_RET_STATUS KR_xmlReadSettingsFile(const wchar_t* fileName,
                                     const char* startTag,
                                     const char* endTag,
                                     KR_Array<KR_XmlSetting>& settings) {
    KR_setUserError(0);
    KR_FileAscii file;
    KR_RET_STATUS status = file.open(fileName, KR_FILE_MODE_READ);
    if (KRI_FAILED(status)) return status;
    status = KR_xmlReadSettingsFile(file, startTag, endTag, settings);
    file.close();
    return status;
}

KR_RET_STATUS KR_xmlSaveSettingsFile(KR_FileAscii& file,
                                     const char* startTag,
                                     const char* endTag,
                                     KR_Array<KR_XmlSetting>& settings) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkArguments(file, startTag, endTag, settings);
    if (KRI_FAILED(status)) return status;
    unsigned int n = settings.numElems();
    for (unsigned int i = 0; i < n; ++i) {
        const KR_XmlSetting& setting = settings[i];
        if (!settingTag(setting.tag) || holdsOpenBracket(setting.value)) {
            return KRI_FAIL_MSG(KR_RET_ERR_GEN, "KR_xmlSaveSettingsFile: setting cannot be written",
                                "index %u\n", i);
        }
        if (!encodable(setting.value)) {
            return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                                "KR_xmlSaveSettingsFile: value not representable in the locale",
                                "index %u\n", i);
        }
    }
    ChunkWriter out(file);
    out.put(startTag);
    out.put("\n\n", 2);
    for (unsigned int i = 0; i < n; ++i) {
        KR_XmlSetting& setting = settings[i];
        const char* tag = setting.tag;
        const wchar_t* value = setting.value;
        out.put(tag);
        if (value != nullptr) out.putWide(value);
        out.put("</", 2);
        out.put(tag + 1);
        out.put("\n\n", 2);
    }
    out.put(endTag);
    out.put("\n", 1);
    status = out.flush();
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_xmlSaveSettingsFile(const wchar_t* fileName,
                                     const char* startTag,
                                     const char* endTag,
                                     KR_Array<KR_XmlSetting>& settings) {
    KR_setUserError(0);
    if (!settings.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (fileName == nullptr || fileName[0] == L'\0' || !given(startTag) || !given(endTag)) {
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    wchar_t* temporary = temporaryName(fileName);
    if (temporary == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    KR_FileAscii file;
    KR_RET_STATUS status = file.open(temporary, KR_FILE_MODE_WRITE);
    if (KRI_FAILED(status)) {
        krInternal::freeBlock(temporary);
        return status;
    }
    status = KR_xmlSaveSettingsFile(file, startTag, endTag, settings);
    if (!KRI_FAILED(status)) status = file.flush();
    KR_RET_STATUS closed = file.close();
    if (!KRI_FAILED(status) && KRI_FAILED(closed)) status = closed;
    // The new contents reach the disk before the name points to them, so that after a crash the
    // name holds the old file or the whole new one.
    int synced = KRI_FAILED(status) ? 0 : krPlatform::syncFileW(temporary);
    if (synced == ENOMEM) {
        status = KRI_FAIL(KR_RET_ERR_MEM);
    } else if (synced != 0) {
        status = KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_xmlSaveSettingsFile: cannot write through",
                              "%ls\n", temporary);
    }
    int replaced = KRI_FAILED(status) ? 0 : krPlatform::replaceFileW(temporary, fileName);
    if (replaced == ENOMEM) {
        status = KRI_FAIL(KR_RET_ERR_MEM);
    } else if (replaced != 0) {
        status = KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_xmlSaveSettingsFile: cannot replace", "%ls\n",
                              fileName);
    }
    if (KRI_FAILED(status)) krPlatform::removePathW(temporary);
    krInternal::freeBlock(temporary);
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_xmlGetSettingInList(const char* tag,
                                     KR_Array<KR_XmlSetting>& settings,
                                     unsigned int& index) {
    KR_setUserError(0);
    if (!settings.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (tag == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    index = findSetting(tag, settings);
    return index < settings.numElems() ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_xmlGetSettingInList(const char* tag,
                                     KR_Array<KR_XmlSetting>& settings,
                                     KR_StringW& value) {
    KR_setUserError(0);
    if (!settings.objIsEnabled() || !value.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    value.assignPtr(nullptr);
    if (tag == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int index = findSetting(tag, settings);
    if (index == settings.numElems()) return KR_RET_FALSE;
    if (!KR_ElemCopy<KR_StringW>::copy(value, settings[index].value)) return KR_RET_ERR_MEM;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_xmlSetSettingInList(const char* tag,
                                     KR_Array<KR_XmlSetting>& settings,
                                     const wchar_t* value) {
    KR_setUserError(0);
    if (!settings.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!settingTag(tag)) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_XmlSetting setting;
    setting.value = value;
    if (value != nullptr && value[0] != L'\0' &&
        static_cast<const wchar_t*>(setting.value) == nullptr) {
        return KR_RET_ERR_MEM;
    }
    unsigned int index = findSetting(tag, settings);
    if (index < settings.numElems()) {
        settings[index].value = std::move(setting.value);
        return KR_RET_TRUE;
    }
    setting.tag = tag;
    if (static_cast<const char*>(setting.tag) == nullptr) return KR_RET_ERR_MEM;
    KR_RET_STATUS status = settings.appendElem(std::move(setting));
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}
