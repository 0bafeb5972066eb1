#!/bin/sh
# dbtypes.sh — regenerates tests/data/dbtypes.db, a SQLite database whose one table declares a
# column for each common type name of SQLite's, PostgreSQL's and SQL Server's documentation, and
# tests/data/dbtypes.txt, the declared types as SQLite reports them ("column|declared type").
# Each column is named after the field type the name should map to ("c07_INT16"; UNKNOWN where
# the vocabulary has no type for it). Needs the sqlite3 shell (Debian: sqlite3); the library
# never links SQLite, and its tests read the text unless the build found SQLite.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
db="$here/../tests/data/dbtypes.db"
txt="$here/../tests/data/dbtypes.txt"
rm -f "$db"
sqlite3 "$db" <<'SQL'
CREATE TABLE declared (
    -- SQLite: the examples of its type affinity rules
    c01_INT32 INT,
    c02_INT32 INTEGER,
    c03_UINT8 TINYINT,
    c04_INT16 SMALLINT,
    c05_UNKNOWN MEDIUMINT,
    c06_INT64 BIGINT,
    c07_UNKNOWN UNSIGNED BIG INT,
    c08_INT16 INT2,
    c09_INT8 INT8,
    c10_CHAR CHARACTER(20),
    c11_VARCHAR VARCHAR(255),
    c12_UNKNOWN VARYING CHARACTER(255),
    c13_WCHAR NCHAR(55),
    c14_UNKNOWN NATIVE CHARACTER(70),
    c15_WVARCHAR NVARCHAR(100),
    c16_TEXT TEXT,
    c17_TEXT CLOB,
    c18_BLOB BLOB,
    c19_FLOAT REAL,
    c20_DOUBLE DOUBLE,
    c21_DOUBLE DOUBLE PRECISION,
    c22_FLOAT FLOAT,
    c23_DECIMAL NUMERIC,
    c24_DECIMAL DECIMAL(10,5),
    c25_BOOL BOOLEAN,
    c26_DATE DATE,
    c27_TIMESTAMP DATETIME,
    -- PostgreSQL
    c28_INT32 integer,
    c29_INT64 bigint,
    c30_DOUBLE double   precision,
    c31_DECIMAL numeric(10, 2),
    c32_BOOL boolean,
    c33_CHAR char(8),
    c34_VARCHAR character varying(40),
    c35_TEXT text,
    c36_BLOB bytea,
    c37_TIME time,
    c38_TIMESTAMP timestamp,
    c39_GUID uuid,
    c40_INT32 int4,
    c41_FLOAT float4,
    c42_DOUBLE float8,
    c43_BOOL bool,
    c44_DECIMAL decimal,
    c45_WCHAR national character(10),
    -- SQL Server
    c46_BOOL bit,
    c47_INT32 int,
    c48_DECIMAL decimal(18,2),
    c49_VARCHAR varchar(50),
    c50_WVARCHAR nvarchar(4000),
    c51_WVARCHAR ntext,
    c52_BLOB binary(16),
    c53_BLOB varbinary(8000),
    c54_TIMESTAMP datetime2,
    c55_GUID uniqueidentifier,
    c56_WVARCHAR nclob,
    c57_UNKNOWN money
);
SQL
sqlite3 "$db" "SELECT name || '|' || type FROM pragma_table_info('declared') ORDER BY cid;" > "$txt"
echo "wrote $db and $txt"
