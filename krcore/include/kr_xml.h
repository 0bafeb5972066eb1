// kr_xml.h — the tag reader: values between an opening and a closing tag on a text file.
// Every text persistence of the library writes "<tag>value</tag>" lines and reads them back
// through these functions. The notation is deliberately minimal: no attributes, no nesting
// rules, no entities, no white-space normalisation; the file is read a character at a time.
#ifndef KRCORE_KR_XML_H
#define KRCORE_KR_XML_H

#include "kr_file.h"
#include "kr_reporter.h"
#include "kr_str.h"

// Tags are kept with their brackets ("<version>", "</version>"). An opening tag is valid when
// it has at least 3 characters, starts with "<" and ends with ">"; a closing tag needs at least 4
// and "/" as its second character. Every function empties its outputs first. A scan failure of
// the file (a status above 2) ends the read at once, leaves the outputs empty and is returned
// unchanged.

// Skips everything up to the next "<" and reads the tag up to and including the next ">".
// KR_RET_FALSE with an empty tag when the file ends first, when the text read is not a valid
// opening tag (the characters read stay consumed), or when expected is given and differs
// (exact, case-sensitive).
KR_API KR_RET_STATUS KR_xmlReadTag(KR_String& tag, KR_FileAscii& file, const char* expected);
// The same with the closing-tag rule.
KR_API KR_RET_STATUS KR_xmlReadEndTag(KR_String& tag, KR_FileAscii& file, const char* expected);
// Reads the text up to the next "<", which is left for the next tag read: the file is
// positioned back to where the "<" begins. Line ends and blanks are kept as they stand. Content
// that runs to the end of the file is returned with KR_RET_TRUE, as is the empty content of a
// file already at its end. The wide form converts the locale's multibyte text as
// KR_FileAscii::scanCharW does.
KR_API KR_RET_STATUS KR_xmlReadTagContent(KR_String& content, KR_FileAscii& file);
KR_API KR_RET_STATUS KR_xmlReadTagContentW(KR_StringW& content, KR_FileAscii& file);
// Reads an opening tag (checked against startTag unless it is null), the content, and a closing
// tag (checked against endTag unless it is null). KR_RET_TRUE only when all three succeed;
// otherwise content is empty and the first status other than KR_RET_TRUE is returned (so an
// entry without its closing tag gives KR_RET_FALSE).
KR_API KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content,
                                        KR_FileAscii& file,
                                        const char* startTag,
                                        const char* endTag);
KR_API KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content,
                                         KR_FileAscii& file,
                                         const char* startTag,
                                         const char* endTag);
// Reads the next entry whatever its tag and gives the opening tag back in tag. The closing tag
// must be the one of that opening tag ("</a>" for "<a>"), else KR_RET_FALSE. On any failure
// both tag and content are empty.
KR_API KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content, KR_String& tag, KR_FileAscii& file);
KR_API KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content, KR_String& tag, KR_FileAscii& file);

// --- Settings files ---
// A settings file is a start tag, one entry per setting and the end tag:
//   <settings>
//
//   <width>10</width>
//
//   <title>Hello, world</title>
//
//   </settings>
// The value of an entry is the wide text between its tags (the locale's multibyte text on the
// file), kept as it stands: white space and line ends included. The notation has no escapes, so
// a value cannot hold "<".

// KR_XmlSetting — one setting: the opening tag with its brackets ("<width>") and the value. Both
// strings own their text. A copy whose memory runs out is reported by the string that failed,
// which is then null; KR_ElemCopy tells the containers so. Moving never allocates and never fails.
class KR_API KR_XmlSetting {
public:
    KR_XmlSetting();
    KR_XmlSetting(const KR_XmlSetting& other);
    KR_XmlSetting(KR_XmlSetting&& other) noexcept;
    ~KR_XmlSetting();
    KR_XmlSetting& operator=(const KR_XmlSetting& other);
    KR_XmlSetting& operator=(KR_XmlSetting&& other) noexcept;

    // Equal tags and equal values (a null text equals the empty one).
    bool operator==(const KR_XmlSetting& other) const;
    // Empties both strings.
    void init();

    KR_String tag;
    KR_StringW value;
};

template <>
struct KR_ElemCopy<KR_XmlSetting> {
    static constexpr bool kMayFail = true;

    static bool copy(KR_XmlSetting& dst, const KR_XmlSetting& src) {
        dst = src;
        return (static_cast<const char*>(dst.tag) != nullptr ||
                static_cast<const char*>(src.tag) == nullptr) &&
               (static_cast<const wchar_t*>(dst.value) != nullptr ||
                static_cast<const wchar_t*>(src.value) == nullptr);
    }
};

// The settings lists are provided by the library (kr_instances.cpp).
extern template class KR_API KR_Container<KR_XmlSetting>;
extern template class KR_API KR_OrdContainer<KR_XmlSetting>;
extern template class KR_API KR_I_Iterator<KR_XmlSetting>;
extern template class KR_API KR_IndContainer<KR_XmlSetting>;
extern template class KR_API KR_Array<KR_XmlSetting>;

// The settings functions report under "src/kr_xml". startTag and endTag are whole tags with
// their brackets ("<settings>", "</settings>"); a null or empty one is refused with
// KR_RET_ERR_ARG, as is a file that is not open. A list that is not initialised answers
// KR_RET_ERR_POBJ.

// Reads a settings file from the position of file into settings, in file order. Text before
// the start tag and between entries is skipped, as the tag reader skips it; what follows the end
// tag is not read. Answers:
//   KR_RET_TRUE   the list holds the file's settings (its old elements are gone);
//   KR_RET_FALSE  the file's first tag is not the start tag, or it has no tag at all (another
//                 kind of file, an empty file): the list is emptied, nothing is reported;
//   KR_RET_ERR_GEN a malformed entry (a tag without its closing tag or content, a stray closing
//                 tag, nested tags) or a missing end tag, reported with the byte offset where
//                 the entry starts.
// On every failure (KR_RET_ERR_GEN, KR_RET_ERR_MEM, a read error of the file) the list stays as
// it was: the settings are collected aside and take the list's place only at the end.
//   <s>\n<a>1</a>\n<b>x y</b>\n</s>  read with "<s>", "</s>"  ->  {"<a>", L"1"}, {"<b>", L"x y"}
KR_API KR_RET_STATUS KR_xmlReadSettingsFile(KR_FileAscii& file,
                                            const char* startTag,
                                            const char* endTag,
                                            KR_Array<KR_XmlSetting>& settings);
// Opens fileName as a text file for reading and reads it as above; a file that cannot be opened
// answers its open status (KR_RET_ERR_FILE, reported) and leaves the list as it was.
KR_API KR_RET_STATUS KR_xmlReadSettingsFile(const wchar_t* fileName,
                                            const char* startTag,
                                            const char* endTag,
                                            KR_Array<KR_XmlSetting>& settings);
// Writes at the position of file: the start tag and a blank line; per setting in list order its
// tag, its value as the locale's multibyte text (a null value as nothing) and its closing tag
// ("</" and the tag after its "<"), then a blank line; the end tag and a line end. Settings that
// could not be read back are refused before anything is written, reported with their index:
// KR_RET_ERR_GEN for a null tag, a tag that is not an opening tag ("<", at least one character,
// ">", no "<" or ">" inside, no "/" after the "<") and a value holding "<"; KR_RET_ERR_ARG for a
// value that the locale cannot encode. A write error answers its status, and what was written up
// to then stays on the file.
//   {"<width>", L"10"} between "<s>" and "</s>"  ->  "<s>\n\n<width>10</width>\n\n</s>\n"
KR_API KR_RET_STATUS KR_xmlSaveSettingsFile(KR_FileAscii& file,
                                            const char* startTag,
                                            const char* endTag,
                                            KR_Array<KR_XmlSetting>& settings);
// Writes the settings to a temporary file beside fileName (same directory, the name followed by
// ".tmp", the process id and a number), closes it, waits until its contents are on the disk, and
// then puts it in fileName's place with one rename, which replaces an existing file: after a
// crash fileName holds the old settings or the new ones, never a part. On any failure the
// temporary file is removed and an existing fileName stays as it was, byte for byte; a failed
// rename reports KR_RET_ERR_FILE.
KR_API KR_RET_STATUS KR_xmlSaveSettingsFile(const wchar_t* fileName,
                                            const char* startTag,
                                            const char* endTag,
                                            KR_Array<KR_XmlSetting>& settings);
// index := the position of the first setting whose tag is tag (exact, case-sensitive) and
// KR_RET_TRUE; KR_RET_FALSE with index := settings.numElems() when there is none.
KR_API KR_RET_STATUS KR_xmlGetSettingInList(const char* tag,
                                            KR_Array<KR_XmlSetting>& settings,
                                            unsigned int& index);
// value := a copy of that setting's value and KR_RET_TRUE; KR_RET_FALSE with value emptied when
// there is none. KR_RET_ERR_MEM empties value.
KR_API KR_RET_STATUS KR_xmlGetSettingInList(const char* tag,
                                            KR_Array<KR_XmlSetting>& settings,
                                            KR_StringW& value);
// Gives the first setting whose tag is tag a copy of value (null: the empty value); when there
// is none, appends a new setting (tag, value) to the list. KR_RET_TRUE either way. A tag that is
// not an opening tag as KR_xmlSaveSettingsFile requires it: KR_RET_ERR_ARG. KR_RET_ERR_MEM
// leaves the list as it was.
KR_API KR_RET_STATUS KR_xmlSetSettingInList(const char* tag,
                                            KR_Array<KR_XmlSetting>& settings,
                                            const wchar_t* value);

#endif  // KRCORE_KR_XML_H
