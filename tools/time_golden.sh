#!/bin/sh
# time_golden.sh — regenerates tests/data/time_golden.txt, the reference tables of the time
# tests, with Howard Hinnant's date library (Debian: libhowardhinnant-date-dev, whose zone part
# reads the system's zone database). Only this script and the benchmark need it; the library
# and its tests never do.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out="$here/../tests/data/time_golden.txt"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
${CXX:-g++} -std=c++17 -O2 -DUSE_OS_TZDB=1 "$here/time_golden.cpp" -o "$work/time_golden" -ldate-tz
"$work/time_golden" > "$out"
echo "wrote $out"
