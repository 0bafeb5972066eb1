// kr_dbfield.cpp — the database field types: the descriptor table and lookup by name.
#include <wchar.h>

#include "kr_report.h"
#include "kr_var.h"

#define KRI_UNIT "src/kr_var"

namespace {

const unsigned int kFixed = KR_DB_FLAG_FIXED;
const unsigned int kSigned = KR_DB_FLAG_SIGNED;
const unsigned int kText = KR_DB_FLAG_TEXT;
const unsigned int kNumeric = KR_DB_FLAG_NUMERIC;
const unsigned int kTemporal = KR_DB_FLAG_TEMPORAL;
const unsigned int kLength = KR_DB_FLAG_LENGTH;
const unsigned int kPrecision = KR_DB_FLAG_PRECISION;
const unsigned int kWide = KR_DB_FLAG_WIDE;

constexpr KR_DbFieldDesc kTable[KR_DB_FIELD_COUNT] = {
        {KR_DB_FIELD_UNKNOWN, "UNKNOWN", L"UNKNOWN", nullptr, 0, KR_VAR_WILD, 0},
        {KR_DB_FIELD_BOOL, "BOOL", L"BOOL", "BOOLEAN", 1, KR_VAR_UCHAR, kFixed},
        {KR_DB_FIELD_INT8, "INT8", L"INT8", nullptr, 1, KR_VAR_CHAR, kFixed | kSigned | kNumeric},
        {KR_DB_FIELD_UINT8, "UINT8", L"UINT8", nullptr, 1, KR_VAR_UCHAR, kFixed | kNumeric},
        {KR_DB_FIELD_INT16, "INT16", L"INT16", "SMALLINT", 2, KR_VAR_SHORT,
         kFixed | kSigned | kNumeric},
        {KR_DB_FIELD_UINT16, "UINT16", L"UINT16", nullptr, 2, KR_VAR_USHORT, kFixed | kNumeric},
        {KR_DB_FIELD_INT32, "INT32", L"INT32", "INTEGER", 4, KR_VAR_INT,
         kFixed | kSigned | kNumeric},
        {KR_DB_FIELD_UINT32, "UINT32", L"UINT32", nullptr, 4, KR_VAR_UINT, kFixed | kNumeric},
        {KR_DB_FIELD_INT64, "INT64", L"INT64", "BIGINT", 8, KR_VAR_STRING,
         kFixed | kSigned | kNumeric},
        {KR_DB_FIELD_UINT64, "UINT64", L"UINT64", nullptr, 8, KR_VAR_STRING, kFixed | kNumeric},
        {KR_DB_FIELD_FLOAT, "FLOAT", L"FLOAT", "REAL", 4, KR_VAR_FLOAT,
         kFixed | kSigned | kNumeric},
        {KR_DB_FIELD_DOUBLE, "DOUBLE", L"DOUBLE", "DOUBLE PRECISION", 8, KR_VAR_DOUBLE,
         kFixed | kSigned | kNumeric},
        {KR_DB_FIELD_DECIMAL, "DECIMAL", L"DECIMAL", "DECIMAL", 0, KR_VAR_STRING,
         kSigned | kNumeric | kPrecision},
        {KR_DB_FIELD_CHAR, "CHAR", L"CHAR", "CHAR", 0, KR_VAR_STRING, kFixed | kText | kLength},
        {KR_DB_FIELD_VARCHAR, "VARCHAR", L"VARCHAR", "VARCHAR", 0, KR_VAR_STRING, kText | kLength},
        {KR_DB_FIELD_WCHAR, "WCHAR", L"WCHAR", "NCHAR", 0, KR_VAR_STRINGW,
         kFixed | kText | kLength | kWide},
        {KR_DB_FIELD_WVARCHAR, "WVARCHAR", L"WVARCHAR", "NVARCHAR", 0, KR_VAR_STRINGW,
         kText | kLength | kWide},
        {KR_DB_FIELD_TEXT, "TEXT", L"TEXT", "CLOB", 0, KR_VAR_STRING, kText},
        {KR_DB_FIELD_BLOB, "BLOB", L"BLOB", "BLOB", 0, KR_VAR_WILD, 0},
        {KR_DB_FIELD_DATE, "DATE", L"DATE", "DATE", 4, KR_VAR_STRING, kFixed | kTemporal},
        {KR_DB_FIELD_TIME, "TIME", L"TIME", "TIME", 4, KR_VAR_STRING, kFixed | kTemporal},
        {KR_DB_FIELD_TIMESTAMP, "TIMESTAMP", L"TIMESTAMP", "TIMESTAMP", 8, KR_VAR_STRING,
         kFixed | kTemporal},
        {KR_DB_FIELD_GUID, "GUID", L"GUID", "UUID", 16, KR_VAR_STRING, kFixed},
};

constexpr bool tableInTypeOrder() {
    for (int i = 0; i < KR_DB_FIELD_COUNT; ++i) {
        if (kTable[i].type != i) return false;
    }
    return true;
}

static_assert(tableInTypeOrder(), "the descriptor table is indexed by the type number");

struct Synonym {
    const char* name;
    KR_DB_FIELD_TYPE type;
};

const Synonym kSynonyms[] = {
        {"INT", KR_DB_FIELD_INT32},
        {"INT2", KR_DB_FIELD_INT16},
        {"INT4", KR_DB_FIELD_INT32},
        {"TINYINT", KR_DB_FIELD_UINT8},
        {"BIT", KR_DB_FIELD_BOOL},
        {"BOOL", KR_DB_FIELD_BOOL},
        {"FLOAT4", KR_DB_FIELD_FLOAT},
        {"FLOAT8", KR_DB_FIELD_DOUBLE},
        {"DOUBLE", KR_DB_FIELD_DOUBLE},
        {"NUMERIC", KR_DB_FIELD_DECIMAL},
        {"DEC", KR_DB_FIELD_DECIMAL},
        {"CHARACTER", KR_DB_FIELD_CHAR},
        {"CHARACTER VARYING", KR_DB_FIELD_VARCHAR},
        {"CHAR VARYING", KR_DB_FIELD_VARCHAR},
        {"NATIONAL CHAR", KR_DB_FIELD_WCHAR},
        {"NATIONAL CHARACTER", KR_DB_FIELD_WCHAR},
        {"NATIONAL CHARACTER VARYING", KR_DB_FIELD_WVARCHAR},
        {"NATIONAL CHAR VARYING", KR_DB_FIELD_WVARCHAR},
        {"NCHAR VARYING", KR_DB_FIELD_WVARCHAR},
        {"NTEXT", KR_DB_FIELD_WVARCHAR},
        {"NCLOB", KR_DB_FIELD_WVARCHAR},
        {"BYTEA", KR_DB_FIELD_BLOB},
        {"BINARY", KR_DB_FIELD_BLOB},
        {"VARBINARY", KR_DB_FIELD_BLOB},
        {"DATETIME", KR_DB_FIELD_TIMESTAMP},
        {"DATETIME2", KR_DB_FIELD_TIMESTAMP},
        {"UNIQUEIDENTIFIER", KR_DB_FIELD_GUID},
};

template <class C>
bool isBlank(C c) {
    return c == ' ' || c == '\t';
}

// Compares the declared name [begin, end) (trimmed, no blank at either end) with a name of the
// tables (upper case, single blanks): any ASCII case, and any run of blanks for one blank.
template <class C>
bool sameName(const C* begin, const C* end, const char* name) {
    const C* p = begin;
    for (; *name != '\0'; ++name) {
        if (p == end) return false;
        if (*name == ' ') {
            if (!isBlank(*p)) return false;
            while (isBlank(*p))
                ++p;
            continue;
        }
        C c = *p++;
        if (c >= 'a' && c <= 'z') c = static_cast<C>(c - 'a' + 'A');
        if (c != static_cast<C>(*name)) return false;
    }
    return p == end;
}

template <class C>
KR_RET_STATUS fromName(const C* name, KR_DB_FIELD_TYPE& type, unsigned int line) {
    krInternal::clearUserError();
    if (name == nullptr) return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    while (isBlank(*name))
        ++name;
    const C* end = name;
    while (*end != 0 && *end != '(')
        ++end;
    while (end > name && isBlank(end[-1]))
        --end;
    for (const KR_DbFieldDesc& desc : kTable) {
        if (sameName(name, end, desc.name)) {
            type = desc.type;
            return KR_RET_TRUE;
        }
    }
    for (const KR_DbFieldDesc& desc : kTable) {
        if (desc.sqlName != nullptr && sameName(name, end, desc.sqlName)) {
            type = desc.type;
            return KR_RET_TRUE;
        }
    }
    for (const Synonym& synonym : kSynonyms) {
        if (sameName(name, end, synonym.name)) {
            type = synonym.type;
            return KR_RET_TRUE;
        }
    }
    type = KR_DB_FIELD_UNKNOWN;
    return KR_RET_FALSE;
}

bool known(KR_DB_FIELD_TYPE type) {
    return static_cast<unsigned int>(type) < static_cast<unsigned int>(KR_DB_FIELD_COUNT);
}

}  // namespace

const char* KR_dbFieldTypeName(KR_DB_FIELD_TYPE type) {
    return known(type) ? kTable[type].name : nullptr;
}

const wchar_t* KR_dbFieldTypeNameW(KR_DB_FIELD_TYPE type) {
    return known(type) ? kTable[type].nameW : nullptr;
}

KR_RET_STATUS KR_dbFieldTypeDesc(KR_DB_FIELD_TYPE type, const KR_DbFieldDesc*& desc) {
    krInternal::clearUserError();
    if (!known(type)) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_DbFieldDesc: unknown field type", "%d",
                            static_cast<int>(type));
    }
    desc = &kTable[type];
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_dbFieldTypeFromName(const char* name, KR_DB_FIELD_TYPE& type) {
    return fromName(name, type, __LINE__);
}

KR_RET_STATUS KR_dbFieldTypeFromNameW(const wchar_t* name, KR_DB_FIELD_TYPE& type) {
    return fromName(name, type, __LINE__);
}

KR_VAR_TYPE KR_dbFieldTypeToVarType(KR_DB_FIELD_TYPE type) {
    return known(type) ? kTable[type].varType : KR_VAR_WILD;
}
