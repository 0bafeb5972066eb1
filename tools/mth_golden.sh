#!/bin/sh
# mth_golden.sh — regenerates tests/data/mth_golden.txt, the reference tables of the math and
# camera tests, with glm and Eigen (Debian: libglm-dev, libeigen3-dev; both header-only). Only
# this script and the benchmarks need them; the library and its tests never do.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out="$here/../tests/data/mth_golden.txt"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
${CXX:-g++} -std=c++17 -O2 -I/usr/include/eigen3 "$here/mth_golden.cpp" -o "$work/mth_golden"
"$work/mth_golden" > "$out"
echo "wrote $out"
