// mth_golden.h — the golden tables of tools/mth_golden.sh (glm and Eigen results) and the
// tolerance the math and camera suites compare them with.
#ifndef KRCORE_TESTS_MTH_GOLDEN_H
#define KRCORE_TESTS_MTH_GOLDEN_H

#include <float.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>
#include <vector>

#include "gtest/gtest.h"

namespace krtest {

using GoldenRow = std::vector<double>;

// Every table of tests/data/mth_golden.txt by name; fails the test when the file is missing.
inline const std::map<std::string, std::vector<GoldenRow>>& goldenTables() {
    static std::map<std::string, std::vector<GoldenRow>> tables;
    if (!tables.empty()) return tables;
    std::string path = std::string(KR_TEST_DATA_DIR) + "/mth_golden.txt";
    FILE* f = fopen(path.c_str(), "r");
    EXPECT_NE(nullptr, f) << path;
    if (f == nullptr) return tables;
    static char line[1 << 17];
    std::vector<GoldenRow>* current = nullptr;
    while (fgets(line, sizeof line, f)) {
        if (line[0] == '#') continue;
        if (strncmp(line, "table ", 6) == 0) {
            char name[64];
            if (sscanf(line + 6, "%63s", name) == 1) current = &tables[name];
            continue;
        }
        GoldenRow row;
        char* p = line;
        for (char* end = nullptr;; p = end) {
            double v = strtod(p, &end);
            if (end == p) break;
            row.push_back(v);
        }
        if (current != nullptr && !row.empty()) current->push_back(row);
    }
    fclose(f);
    return tables;
}

inline const std::vector<GoldenRow>& golden(const char* name) {
    const std::vector<GoldenRow>& rows = goldenTables().at(name);
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}

// Relative agreement of a set of numbers: every |a - b| within tol times the largest |b| of
// the set (at least 1). The peers round differently in the last bits, and x87 arithmetic on
// 32-bit Linux keeps 80-bit intermediates, so no comparison against a peer is bitwise.
inline ::testing::AssertionResult nearAll(const double* actual,
                                          const double* expected,
                                          size_t n,
                                          double tol = 1e-12) {
    double scale = 1.0;
    for (size_t i = 0; i < n; ++i)
        scale = fmax(scale, fabs(expected[i]));
    for (size_t i = 0; i < n; ++i) {
        if (!(fabs(actual[i] - expected[i]) <= tol * scale))
            return ::testing::AssertionFailure()
                   << "element " << i << ": " << actual[i] << " expected " << expected[i]
                   << " (scale " << scale << ")";
    }
    return ::testing::AssertionSuccess();
}

}  // namespace krtest

#endif  // KRCORE_TESTS_MTH_GOLDEN_H
