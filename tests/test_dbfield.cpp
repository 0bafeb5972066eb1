// test_dbfield.cpp — the database field types: the descriptor table as the header documents it,
// names both ways, and the declared types of a real SQLite database (tools/dbtypes.sh), read from
// the database itself where the build found SQLite, else from its committed text dump.
#include <stdio.h>
#include <string.h>

#include <string>
#include <utility>
#include <vector>

#include "test_support.h"

#ifdef KR_TEST_HAVE_SQLITE
#include <sqlite3.h>
#endif

namespace {

const unsigned int F = KR_DB_FLAG_FIXED, S = KR_DB_FLAG_SIGNED, T = KR_DB_FLAG_TEXT,
                   N = KR_DB_FLAG_NUMERIC, M = KR_DB_FLAG_TEMPORAL, L = KR_DB_FLAG_LENGTH,
                   P = KR_DB_FLAG_PRECISION, W = KR_DB_FLAG_WIDE;

// "c07_INT16" -> the declared type of each column of tests/data/dbtypes.db.
std::vector<std::pair<std::string, std::string>> declaredColumns() {
    std::vector<std::pair<std::string, std::string>> columns;
#ifdef KR_TEST_HAVE_SQLITE
    sqlite3* db = nullptr;
    EXPECT_EQ(SQLITE_OK,
              sqlite3_open_v2(KR_TEST_DATA_DIR "/dbtypes.db", &db, SQLITE_OPEN_READONLY, nullptr));
    sqlite3_stmt* st = nullptr;
    EXPECT_EQ(SQLITE_OK,
              sqlite3_prepare_v2(db, "SELECT name, type FROM pragma_table_info('declared')", -1,
                                 &st, nullptr));
    while (st != nullptr && sqlite3_step(st) == SQLITE_ROW) {
        columns.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)),
                             reinterpret_cast<const char*>(sqlite3_column_text(st, 1)));
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
#else
    FILE* f = fopen(KR_TEST_DATA_DIR "/dbtypes.txt", "r");
    EXPECT_NE(nullptr, f);
    char line[256];
    while (f != nullptr && fgets(line, sizeof line, f)) {
        line[strcspn(line, "\r\n")] = '\0';
        const char* bar = strchr(line, '|');
        if (bar != nullptr)
            columns.emplace_back(std::string(line, static_cast<size_t>(bar - line)), bar + 1);
    }
    if (f != nullptr) fclose(f);
#endif
    EXPECT_GT(columns.size(), 50u);
    return columns;
}

}  // namespace

TEST(DbField, TableAsDocumented) {
    const struct {
        KR_DB_FIELD_TYPE type;
        const char* sqlName;
        unsigned int size;
        unsigned int flags;
        KR_VAR_TYPE varType;
    } rows[] = {
            {KR_DB_FIELD_UNKNOWN, nullptr, 0, 0, KR_VAR_WILD},
            {KR_DB_FIELD_BOOL, "BOOLEAN", 1, F, KR_VAR_UCHAR},
            {KR_DB_FIELD_INT8, nullptr, 1, F | S | N, KR_VAR_CHAR},
            {KR_DB_FIELD_UINT8, nullptr, 1, F | N, KR_VAR_UCHAR},
            {KR_DB_FIELD_INT16, "SMALLINT", 2, F | S | N, KR_VAR_SHORT},
            {KR_DB_FIELD_UINT16, nullptr, 2, F | N, KR_VAR_USHORT},
            {KR_DB_FIELD_INT32, "INTEGER", 4, F | S | N, KR_VAR_INT},
            {KR_DB_FIELD_UINT32, nullptr, 4, F | N, KR_VAR_UINT},
            {KR_DB_FIELD_INT64, "BIGINT", 8, F | S | N, KR_VAR_STRING},
            {KR_DB_FIELD_UINT64, nullptr, 8, F | N, KR_VAR_STRING},
            {KR_DB_FIELD_FLOAT, "REAL", 4, F | S | N, KR_VAR_FLOAT},
            {KR_DB_FIELD_DOUBLE, "DOUBLE PRECISION", 8, F | S | N, KR_VAR_DOUBLE},
            {KR_DB_FIELD_DECIMAL, "DECIMAL", 0, S | N | P, KR_VAR_STRING},
            {KR_DB_FIELD_CHAR, "CHAR", 0, F | T | L, KR_VAR_STRING},
            {KR_DB_FIELD_VARCHAR, "VARCHAR", 0, T | L, KR_VAR_STRING},
            {KR_DB_FIELD_WCHAR, "NCHAR", 0, F | T | L | W, KR_VAR_STRINGW},
            {KR_DB_FIELD_WVARCHAR, "NVARCHAR", 0, T | L | W, KR_VAR_STRINGW},
            {KR_DB_FIELD_TEXT, "CLOB", 0, T, KR_VAR_STRING},
            {KR_DB_FIELD_BLOB, "BLOB", 0, 0, KR_VAR_WILD},
            {KR_DB_FIELD_DATE, "DATE", 4, F | M, KR_VAR_STRING},
            {KR_DB_FIELD_TIME, "TIME", 4, F | M, KR_VAR_STRING},
            {KR_DB_FIELD_TIMESTAMP, "TIMESTAMP", 8, F | M, KR_VAR_STRING},
            {KR_DB_FIELD_GUID, "UUID", 16, F, KR_VAR_STRING},
    };

    ASSERT_EQ(static_cast<size_t>(KR_DB_FIELD_COUNT), sizeof rows / sizeof rows[0]);
    for (const auto& row : rows) {
        const char* name = KR_dbFieldTypeName(row.type);
        ASSERT_NE(nullptr, name);
        SCOPED_TRACE(name);
        const KR_DbFieldDesc* desc = nullptr;
        ASSERT_KR_OK(KR_dbFieldTypeDesc(row.type, desc));
        EXPECT_EQ(row.type, desc->type);
        EXPECT_STREQ(name, desc->name);
        EXPECT_EQ(std::wstring(name, name + strlen(name)), KR_dbFieldTypeNameW(row.type));
        EXPECT_STREQ(row.sqlName, desc->sqlName);
        EXPECT_EQ(row.size, desc->size);
        EXPECT_EQ(row.flags, desc->flags);
        EXPECT_EQ(row.varType, desc->varType);
        EXPECT_EQ(row.varType, KR_dbFieldTypeToVarType(row.type));
        // Both spellings parse back, in any case and either width.
        KR_DB_FIELD_TYPE back = KR_DB_FIELD_COUNT;
        EXPECT_KR_OK(KR_dbFieldTypeFromName(name, back));
        EXPECT_EQ(row.type, back);
        if (row.sqlName != nullptr) {
            std::wstring lower;
            for (const char* p = row.sqlName; *p; ++p)
                lower += static_cast<wchar_t>(*p >= 'A' && *p <= 'Z' ? *p + 32 : *p);
            EXPECT_KR_OK(KR_dbFieldTypeFromNameW(lower.c_str(), back));
            EXPECT_EQ(row.type, back);
        }
    }
    const KR_DbFieldDesc* kept = nullptr;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_dbFieldTypeDesc(KR_DB_FIELD_COUNT, kept));
    EXPECT_EQ(nullptr, kept);
    EXPECT_NE(std::string::npos,
              capture.located().find("src/kr_var: line N: KR_DbFieldDesc: unknown field type\n23"));
    EXPECT_EQ(nullptr, KR_dbFieldTypeName(static_cast<KR_DB_FIELD_TYPE>(-1)));
    EXPECT_EQ(KR_VAR_WILD, KR_dbFieldTypeToVarType(KR_DB_FIELD_COUNT));
}

TEST(DbField, DeclaredNamesOfARealDatabase) {
    for (const auto& column : declaredColumns()) {
        SCOPED_TRACE(column.first + " " + column.second);
        const std::string expected = column.first.substr(column.first.find('_') + 1);
        KR_DB_FIELD_TYPE type = KR_DB_FIELD_COUNT;
        const KR_RET_STATUS st = KR_dbFieldTypeFromName(column.second.c_str(), type);
        EXPECT_KR_STATUS(expected == "UNKNOWN" ? KR_RET_FALSE : KR_RET_TRUE, st);
        EXPECT_STREQ(expected.c_str(), KR_dbFieldTypeName(type));
    }
}

TEST(DbField, NameEdges) {
    const struct {
        const char* name;
        KR_RET_STATUS status;
        KR_DB_FIELD_TYPE type;
    } rows[] = {
            {" Integer ", KR_RET_TRUE, KR_DB_FIELD_INT32},
            {"\tnumeric (10, 2)", KR_RET_TRUE, KR_DB_FIELD_DECIMAL},
            {"character \t varying", KR_RET_TRUE, KR_DB_FIELD_VARCHAR},
            {"doubleprecision", KR_RET_FALSE, KR_DB_FIELD_UNKNOWN},
            {"double precision x", KR_RET_FALSE, KR_DB_FIELD_UNKNOWN},
            {"(8)", KR_RET_FALSE, KR_DB_FIELD_UNKNOWN},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        KR_DB_FIELD_TYPE type = KR_DB_FIELD_COUNT;
        EXPECT_KR_STATUS(row.status, KR_dbFieldTypeFromName(row.name, type));
        EXPECT_EQ(row.type, type);
    }
    KR_DB_FIELD_TYPE type = KR_DB_FIELD_COUNT;
    const wchar_t wide[] = {L'I', L'N', static_cast<wchar_t>(0x130), L'T', 0};
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_dbFieldTypeFromNameW(wide, type));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_dbFieldTypeFromName(nullptr, type));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_dbFieldTypeFromNameW(nullptr, type));
}
