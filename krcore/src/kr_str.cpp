// kr_str.cpp — the narrow and the wide string class and their free operators.
#include "kr_str.h"

#include "kr_strbody.h"

#define KRI_UNIT "src/kr_str"

namespace {

using NarrowBody = krInternal::StringBody<KR_String>;
using WideBody = krInternal::StringBody<KR_StringW>;

}  // namespace

void krInternal::adoptIntoEmpty(KR_String& s, char* text) {
    NarrowBody::adoptIntoEmpty(s, text);
}

void krInternal::adoptIntoEmpty(KR_StringW& s, wchar_t* text) {
    WideBody::adoptIntoEmpty(s, text);
}

// --- KR_String ---

KR_String::KR_String() {
    initDataMembers(nullptr);
}

KR_String::KR_String(const char* text) {
    NarrowBody::construct(*this, text);
}

KR_String::KR_String(const wchar_t* text) {
    NarrowBody::construct(*this, text);
}

KR_String::KR_String(const KR_String& other) : KR_Persistable(other) {
    NarrowBody::construct(*this, other);
}

KR_String::~KR_String() {
    cleanupDataMembers();
}

KR_String& KR_String::operator=(const KR_String& other) {
    return NarrowBody::assign(*this, other);
}

KR_String& KR_String::operator=(const char* text) {
    return NarrowBody::assign(*this, text);
}

KR_String& KR_String::operator=(const wchar_t* text) {
    return NarrowBody::assign(*this, text);
}

KR_RET_STATUS KR_String::assignPtr(char* text) {
    return NarrowBody::assignPtr(*this, text);
}

KR_RET_STATUS KR_String::allocate(unsigned int length) {
    return NarrowBody::allocate(*this, length);
}

unsigned int KR_String::strLeng() const {
    return NarrowBody::length(*this);
}

char& KR_String::operator[](int index) {
    return NarrowBody::at(*this, index);
}

bool KR_String::operator<(const KR_String& other) const {
    return NarrowBody::order(*this, other) == -1;
}

bool KR_String::operator<(const char* text) const {
    return NarrowBody::order(*this, text) == -1;
}

bool KR_String::operator<(const wchar_t* text) const {
    return NarrowBody::order(*this, text) == -1;
}

bool KR_String::operator<(const KR_StringW& other) const {
    return NarrowBody::order(*this, other) == -1;
}

bool KR_String::operator==(const KR_String& other) const {
    return NarrowBody::order(*this, other) == 0;
}

bool KR_String::operator==(const char* text) const {
    return NarrowBody::order(*this, text) == 0;
}

bool KR_String::operator==(const wchar_t* text) const {
    return NarrowBody::order(*this, text) == 0;
}

bool KR_String::operator==(const KR_StringW& other) const {
    return NarrowBody::order(*this, other) == 0;
}

bool KR_String::operator!=(const KR_String& other) const {
    return !(*this == other);
}

bool KR_String::operator!=(const char* text) const {
    return !(*this == text);
}

bool KR_String::operator!=(const wchar_t* text) const {
    return !(*this == text);
}

bool KR_String::operator!=(const KR_StringW& other) const {
    return !(*this == other);
}

bool KR_String::operator>(const KR_String& other) const {
    return NarrowBody::order(*this, other) == 1;
}

bool KR_String::operator>(const char* text) const {
    return NarrowBody::order(*this, text) == 1;
}

bool KR_String::operator>(const wchar_t* text) const {
    return NarrowBody::order(*this, text) == 1;
}

bool KR_String::operator>(const KR_StringW& other) const {
    return NarrowBody::order(*this, other) == 1;
}

KR_String KR_String::operator+(const KR_String& other) const {
    return NarrowBody::concat(*this, other);
}

KR_String KR_String::operator+(const char* text) const {
    return NarrowBody::concat(*this, text);
}

KR_String KR_String::operator+(const wchar_t* text) const {
    return NarrowBody::concat(*this, text);
}

KR_String KR_String::operator+(const KR_StringW& other) const {
    return NarrowBody::concat(*this, other);
}

KR_String& KR_String::operator+=(const KR_String& other) {
    return NarrowBody::append(*this, other);
}

KR_String& KR_String::operator+=(const char* text) {
    return NarrowBody::append(*this, text);
}

KR_String& KR_String::operator+=(const wchar_t* text) {
    return NarrowBody::append(*this, text);
}

KR_RET_STATUS KR_String::strIns(unsigned int pos, const char* text) {
    return NarrowBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_String::strIns(unsigned int pos, const wchar_t* text) {
    return NarrowBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_String::strIns(unsigned int pos, const KR_String& text) {
    return NarrowBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_String::pack(KR_Version&,
                              char* buffer,
                              unsigned int& used,
                              KR_STORAGE_TYPE storage) {
    return NarrowBody::pack(*this, buffer, used, storage);
}

unsigned int KR_String::getPackedSize(KR_Version&, KR_STORAGE_TYPE storage) {
    return NarrowBody::packedSize(*this, storage);
}

KR_RET_STATUS KR_String::unpack(KR_Version&,
                                char* buffer,
                                unsigned int& used,
                                KR_STORAGE_TYPE storage) {
    return NarrowBody::unpack(*this, buffer, used, storage);
}

KR_RET_STATUS KR_String::persist(KR_Version&, KR_FileAscii& file) {
    return NarrowBody::persist(*this, file);
}

KR_RET_STATUS KR_String::persist(KR_Version&, KR_FileBinary& file, unsigned int& written) {
    return NarrowBody::persist(*this, file, written);
}

KR_RET_STATUS KR_String::restore(KR_Version&, KR_FileAscii& file) {
    return NarrowBody::restore(*this, file);
}

KR_RET_STATUS KR_String::restore(KR_Version&, KR_FileBinary& file, unsigned int& read) {
    return NarrowBody::restore(*this, file, read);
}

KR_RET_STATUS KR_String::initDataMembers(const char* text) {
    return NarrowBody::init(*this, text);
}

KR_RET_STATUS KR_String::cleanupDataMembers() {
    return NarrowBody::cleanup(*this);
}

// --- KR_StringW ---

KR_StringW::KR_StringW() {
    initDataMembers(nullptr);
}

KR_StringW::KR_StringW(const wchar_t* text) {
    WideBody::construct(*this, text);
}

KR_StringW::KR_StringW(const char* text) {
    WideBody::construct(*this, text);
}

KR_StringW::KR_StringW(const KR_StringW& other) : KR_Persistable(other) {
    WideBody::construct(*this, other);
}

KR_StringW::~KR_StringW() {
    cleanupDataMembers();
}

KR_StringW& KR_StringW::operator=(const KR_StringW& other) {
    return WideBody::assign(*this, other);
}

KR_StringW& KR_StringW::operator=(const wchar_t* text) {
    return WideBody::assign(*this, text);
}

KR_StringW& KR_StringW::operator=(const char* text) {
    return WideBody::assign(*this, text);
}

KR_RET_STATUS KR_StringW::assignPtr(wchar_t* text) {
    return WideBody::assignPtr(*this, text);
}

KR_RET_STATUS KR_StringW::allocate(unsigned int length) {
    return WideBody::allocate(*this, length);
}

unsigned int KR_StringW::strLeng() const {
    return WideBody::length(*this);
}

wchar_t& KR_StringW::operator[](int index) {
    return WideBody::at(*this, index);
}

bool KR_StringW::operator<(const KR_StringW& other) const {
    return WideBody::order(*this, other) == -1;
}

bool KR_StringW::operator<(const wchar_t* text) const {
    return WideBody::order(*this, text) == -1;
}

bool KR_StringW::operator<(const char* text) const {
    return WideBody::order(*this, text) == -1;
}

bool KR_StringW::operator<(const KR_String& other) const {
    return WideBody::order(*this, other) == -1;
}

bool KR_StringW::operator==(const KR_StringW& other) const {
    return WideBody::order(*this, other) == 0;
}

bool KR_StringW::operator==(const wchar_t* text) const {
    return WideBody::order(*this, text) == 0;
}

bool KR_StringW::operator==(const char* text) const {
    return WideBody::order(*this, text) == 0;
}

bool KR_StringW::operator==(const KR_String& other) const {
    return WideBody::order(*this, other) == 0;
}

bool KR_StringW::operator!=(const KR_StringW& other) const {
    return !(*this == other);
}

bool KR_StringW::operator!=(const wchar_t* text) const {
    return !(*this == text);
}

bool KR_StringW::operator!=(const char* text) const {
    return !(*this == text);
}

bool KR_StringW::operator!=(const KR_String& other) const {
    return !(*this == other);
}

bool KR_StringW::operator>(const KR_StringW& other) const {
    return WideBody::order(*this, other) == 1;
}

bool KR_StringW::operator>(const wchar_t* text) const {
    return WideBody::order(*this, text) == 1;
}

bool KR_StringW::operator>(const char* text) const {
    return WideBody::order(*this, text) == 1;
}

bool KR_StringW::operator>(const KR_String& other) const {
    return WideBody::order(*this, other) == 1;
}

KR_StringW KR_StringW::operator+(const KR_StringW& other) const {
    return WideBody::concat(*this, other);
}

KR_StringW KR_StringW::operator+(const wchar_t* text) const {
    return WideBody::concat(*this, text);
}

KR_StringW KR_StringW::operator+(const char* text) const {
    return WideBody::concat(*this, text);
}

KR_StringW KR_StringW::operator+(const KR_String& other) const {
    return WideBody::concat(*this, other);
}

KR_StringW& KR_StringW::operator+=(const KR_StringW& other) {
    return WideBody::append(*this, other);
}

KR_StringW& KR_StringW::operator+=(const wchar_t* text) {
    return WideBody::append(*this, text);
}

KR_StringW& KR_StringW::operator+=(const char* text) {
    return WideBody::append(*this, text);
}

KR_RET_STATUS KR_StringW::strIns(unsigned int pos, const wchar_t* text) {
    return WideBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_StringW::strIns(unsigned int pos, const char* text) {
    return WideBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_StringW::strIns(unsigned int pos, const KR_StringW& text) {
    return WideBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_StringW::pack(KR_Version&,
                               char* buffer,
                               unsigned int& used,
                               KR_STORAGE_TYPE storage) {
    return WideBody::pack(*this, buffer, used, storage);
}

unsigned int KR_StringW::getPackedSize(KR_Version&, KR_STORAGE_TYPE storage) {
    return WideBody::packedSize(*this, storage);
}

KR_RET_STATUS KR_StringW::unpack(KR_Version&,
                                 char* buffer,
                                 unsigned int& used,
                                 KR_STORAGE_TYPE storage) {
    return WideBody::unpack(*this, buffer, used, storage);
}

KR_RET_STATUS KR_StringW::persist(KR_Version&, KR_FileAscii& file) {
    return WideBody::persist(*this, file);
}

KR_RET_STATUS KR_StringW::persist(KR_Version&, KR_FileBinary& file, unsigned int& written) {
    return WideBody::persist(*this, file, written);
}

KR_RET_STATUS KR_StringW::restore(KR_Version&, KR_FileAscii& file) {
    return WideBody::restore(*this, file);
}

KR_RET_STATUS KR_StringW::restore(KR_Version&, KR_FileBinary& file, unsigned int& read) {
    return WideBody::restore(*this, file, read);
}

KR_RET_STATUS KR_StringW::initDataMembers(const wchar_t* text) {
    return WideBody::init(*this, text);
}

KR_RET_STATUS KR_StringW::cleanupDataMembers() {
    return WideBody::cleanup(*this);
}

// --- Free operators ---

bool operator<(const char* text, const KR_String& string) {
    return string > text;
}

bool operator<(const wchar_t* text, const KR_String& string) {
    return string > text;
}

bool operator==(const char* text, const KR_String& string) {
    return string == text;
}

bool operator==(const wchar_t* text, const KR_String& string) {
    return string == text;
}

bool operator!=(const char* text, const KR_String& string) {
    return string != text;
}

bool operator!=(const wchar_t* text, const KR_String& string) {
    return string != text;
}

bool operator>(const char* text, const KR_String& string) {
    return string < text;
}

bool operator>(const wchar_t* text, const KR_String& string) {
    return string < text;
}

bool operator<(const wchar_t* text, const KR_StringW& string) {
    return string > text;
}

bool operator<(const char* text, const KR_StringW& string) {
    return string > text;
}

bool operator==(const wchar_t* text, const KR_StringW& string) {
    return string == text;
}

bool operator==(const char* text, const KR_StringW& string) {
    return string == text;
}

bool operator!=(const wchar_t* text, const KR_StringW& string) {
    return string != text;
}

bool operator!=(const char* text, const KR_StringW& string) {
    return string != text;
}

bool operator>(const wchar_t* text, const KR_StringW& string) {
    return string < text;
}

bool operator>(const char* text, const KR_StringW& string) {
    return string < text;
}

KR_String operator+(const char* text, const KR_String& string) {
    return NarrowBody::prepend(text, string);
}

KR_String operator+(const wchar_t* text, const KR_String& string) {
    return NarrowBody::prepend(text, string);
}

KR_StringW operator+(const wchar_t* text, const KR_StringW& string) {
    return WideBody::prepend(text, string);
}

KR_StringW operator+(const char* text, const KR_StringW& string) {
    return WideBody::prepend(text, string);
}

KR_OStream& operator<<(KR_OStream& stream, const KR_String& string) {
    return NarrowBody::print(stream, string);
}

KR_OStream& operator<<(KR_OStream& stream, const KR_StringW& string) {
    return WideBody::print(stream, string);
}
