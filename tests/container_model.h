// container_model.h — oracles shared by the container suites: an element type that owns heap
// memory and counts its instances, models of the array and list cursor rules over std::vector,
// one seeded random driver for both, and the allocation-failure walk every container must pass.
#ifndef KRCORE_TESTS_CONTAINER_MODEL_H
#define KRCORE_TESTS_CONTAINER_MODEL_H

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "test_support.h"

namespace krtest {

// Owns an int on the heap; live counts the instances alive, so a leak or a double destruction
// shows as a wrong count (and as an ASan report).
struct Tracked {
    inline static long live = 0;

    Tracked() : value(new int(0)) { ++live; }

    Tracked(unsigned int v) : value(new int(static_cast<int>(v))) { ++live; }

    Tracked(const Tracked& other) : value(new int(*other.value)) { ++live; }

    Tracked& operator=(const Tracked& other) {
        *value = *other.value;
        return *this;
    }

    ~Tracked() {
        delete value;
        --live;
    }

    bool operator==(const Tracked& other) const { return *value == *other.value; }

    int* value;
};

inline unsigned int valueOf(unsigned int v) {
    return v;
}

inline unsigned int valueOf(const Tracked& t) {
    return static_cast<unsigned int>(*t.value);
}

// A string's text, with a null text shown apart from "".
inline std::string valueOf(const KR_String& s) {
    const char* text = s;
    return text == nullptr ? "(null)" : text;
}

// The values of a container's elements in index order (walks a list from its head each time).
template <class C>
auto contents(C& c) {
    std::vector<decltype(valueOf(c[0]))> out;
    for (unsigned int i = 0; i < c.numElems(); ++i)
        out.push_back(valueOf(c[i]));
    return out;
}

// The cursor index, or 999 for a null cursor.
template <class C>
unsigned int cursorIndex(C& c) {
    unsigned int index = 0;
    return c.getCurIndex(index) == KR_RET_TRUE ? index : 999;
}

// Status text of a report through KR_reportStatus, as ReportCapture::located() shows it.
inline std::string statusReport(const char* unit, const char* text) {
    return std::string(unit) + ": line N: \n" + text + "\n\n";
}

// The rules of KR_Array and KR_VCArray: indices past the end clamped to the end, and a cursor
// that keeps its index across length changes (a null cursor going to element 0).
struct ArrayModel {
    static constexpr bool kList = false;
    std::vector<unsigned int> v;
    bool null = true;
    unsigned int idx = 0;

    unsigned int n() const { return static_cast<unsigned int>(v.size()); }

    unsigned int pos() const { return idx; }

    void place(unsigned int i) {
        null = v.empty();
        idx = null ? 0 : std::min(i, n() - 1);
    }

    KR_RET_STATUS insElems(unsigned int method, unsigned int index, unsigned int count) {
        if (count == 0) return KR_RET_FALSE;
        unsigned int at = v.empty() ? 0 : index >= n() ? n() : method ? index + 1 : index;
        v.insert(v.begin() + at, count, 0u);
        place(null ? 0 : idx);
        return KR_RET_TRUE;
    }

    KR_RET_STATUS delElems(unsigned int index, unsigned int count) {
        if (count == 0 || index >= n()) return KR_RET_FALSE;
        v.erase(v.begin() + index, v.begin() + std::min(n(), index + count));
        place(null ? 0 : idx);
        return KR_RET_TRUE;
    }

    void append(unsigned int x) {
        insElems(1, n(), 1);
        v.back() = x;
    }

    void preappend(unsigned int x) {
        insElems(0, 0, 1);
        v.front() = x;
    }

    KR_RET_STATUS setCurIndex(unsigned int i) {
        null = i >= n();
        idx = null ? 0 : i;
        return null ? KR_RET_FALSE : KR_RET_TRUE;
    }

    KR_RET_STATUS setCurNext() { return null ? KR_RET_FALSE : setCurIndex(idx + 1); }

    KR_RET_STATUS setCurPrev() { return null ? KR_RET_FALSE : setCurIndex(idx - 1); }

    KR_RET_STATUS delCurElem(bool moveNext) {
        if (null) return KR_RET_FALSE;
        delElems(idx, 1);
        if (moveNext) setCurNext();
        return KR_RET_TRUE;
    }

    // The first equal element, found by the cursor walk, which leaves a null cursor on a miss.
    KR_RET_STATUS delElem(unsigned int x) {
        setCurIndex(static_cast<unsigned int>(std::find(v.begin(), v.end(), x) - v.begin()));
        return delCurElem(false);
    }
};

// The rules of KR_LList: missing indices refused, the index kept one too high after inserting
// before the cursor, and KR_RET_TRUE when stepping off either end. p is the cursor's position,
// idx the index the list records for it.
struct ListModel {
    static constexpr bool kList = true;
    std::vector<unsigned int> v;
    bool null = true;
    unsigned int p = 0;
    unsigned int idx = 0;

    unsigned int n() const { return static_cast<unsigned int>(v.size()); }

    unsigned int pos() const { return p; }

    KR_RET_STATUS setCurIndex(unsigned int i) {
        null = i >= n();
        if (null) return KR_RET_FALSE;
        p = idx = i;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS step(bool forward) {
        if (null) return KR_RET_FALSE;
        null = forward ? p + 1 == n() : p == 0;
        p += forward ? 1 : -1;
        idx += forward ? 1 : -1;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS setCurNext() { return step(true); }

    KR_RET_STATUS setCurPrev() { return step(false); }

    KR_RET_STATUS insAtCur(unsigned int method, unsigned int x) {
        if (v.empty()) {
            v.push_back(x);
            return KR_RET_TRUE;
        }
        if (null) return KR_RET_ERR_CALL;
        v.insert(v.begin() + p + (method ? 1 : 0), x);
        if (!method) ++idx;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS insElems(unsigned int method, unsigned int index, unsigned int count) {
        if (count == 0) return KR_RET_FALSE;
        if (v.empty()) {
            v.push_back(0);
            if (--count == 0) return KR_RET_TRUE;
        }
        if (setCurIndex(index) != KR_RET_TRUE) return KR_RET_FALSE;
        while (count-- > 0)
            insAtCur(method, 0);
        return KR_RET_TRUE;
    }

    void append(unsigned int x) { v.push_back(x); }

    void preappend(unsigned int x) {
        v.insert(v.begin(), x);
        if (!null) ++p, ++idx;
    }

    KR_RET_STATUS delCurElem(bool moveNext) {
        if (null) return KR_RET_FALSE;
        bool wasTail = p + 1 == n() && p > 0;
        v.erase(v.begin() + p);
        if (wasTail) --p, --idx;
        null = v.empty();
        if (!null && moveNext) step(true);
        return KR_RET_TRUE;
    }

    KR_RET_STATUS delElems(unsigned int index, unsigned int count) {
        if (setCurIndex(index) != KR_RET_TRUE) return KR_RET_FALSE;
        for (unsigned int k = 0; k < count && !null; ++k)
            delCurElem(p + 1 == n());
        return KR_RET_TRUE;
    }

    // Unlinks the first equal node; the cursor is moved only when it stood on or after it.
    KR_RET_STATUS delElem(unsigned int x) {
        unsigned int i = static_cast<unsigned int>(std::find(v.begin(), v.end(), x) - v.begin());
        if (i == n()) return KR_RET_FALSE;
        if (!null && p == i) return delCurElem(false);
        v.erase(v.begin() + i);
        if (!null && p > i) --p, --idx;
        return KR_RET_TRUE;
    }
};

// Drives a container and its model with the same seeded random operations; after every step
// compares the status, the contents, the cursor's element and the index the cursor reports.
template <class M, class C>
void driveLikeModel(C& c, unsigned int seed, int steps) {
    using T = typename std::remove_reference<decltype(c[0])>::type;
    M m;
    std::mt19937 rng(seed);
    auto pick = [&rng](unsigned int hi) {
        return std::uniform_int_distribution<unsigned int>(0, hi)(rng);
    };
    for (int step = 0; step < steps; ++step) {
        unsigned int n = m.n(), op = pick(M::kList ? 11 : 10), a = pick(n + 2), b = pick(3);
        unsigned int x = pick(1000) + 1;
        if (n > 0 && (x & 1)) x = m.v[a % n];  // delElem and the like then hit a held value
        auto method = static_cast<KR_INS_METHOD>(x & 1);
        SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(op));
        KR_RET_STATUS want = KR_RET_TRUE, got = KR_RET_TRUE;
        T value(x);
        const std::function<void()> ops[] = {
                [&] { want = m.insElems(method, a, b), got = c.insElems(method, a, b); },
                [&] { want = m.delElems(a, b), got = c.delElems(a, b); },
                [&] { m.append(x), got = c.appendElem(value); },
                [&] { m.preappend(x), got = c.preappendElem(value); },
                [&] { want = m.delCurElem(b & 1), got = c.delCurElem(b & 1); },
                [&] { want = m.setCurIndex(a), got = c.setCurIndex(a); },
                [&] { want = m.setCurNext(), got = c.setCurNext(); },
                [&] { want = m.setCurPrev(), got = c.setCurPrev(); },
                [&] {
                    want = m.null ? KR_RET_FALSE : (m.v[m.pos()] = x, KR_RET_TRUE);
                    got = c.setCurElem(value);
                },
                [&] {
                    want = m.delElem(x), got = c.delElem(value);
                    EXPECT_FALSE(c.isLocked());
                },
                [&] {
                    want = m.setCurIndex(b && n > 0 ? n - 1 : 0);
                    got = b ? c.setCurLast() : c.setCurFirst();
                },
                [&] {
                    if constexpr (M::kList) {
                        want = m.insAtCur(method, x), got = c.insElemAtCur(method, value);
                    }
                },
        };
        ops[op]();
        EXPECT_KR_STATUS(want, got);
        ASSERT_EQ(m.v, contents(c));
        T* elem = nullptr;
        c.getCurElem(&elem);
        EXPECT_EQ(m.null ? nullptr : &c[m.pos()], elem);
        EXPECT_EQ(m.null ? 999 : m.idx, cursorIndex(c));
        if (::testing::Test::HasFailure()) return;
    }
}

// One operation for the allocation-failure walk, and how many allocations it makes.
template <class C>
struct FaultRow {
    const char* name;
    unsigned long allocations;
    std::function<KR_RET_STATUS(C&)> op;
};

// Fails each allocation of every row's operation in turn, on a fresh container from make. Every
// failure must answer KR_RET_ERR_MEM with one of the given reports and leave contents and
// cursor as they were.
template <class C, class Make>
void expectFailuresKeepContainer(Make make,
                                 const std::vector<FaultRow<C>>& rows,
                                 const std::vector<std::string>& reports) {
    ReportCapture capture;
    for (const FaultRow<C>& row : rows) {
        SCOPED_TRACE(row.name);
        decltype(contents(std::declval<C&>())) before;
        unsigned int cursor = 0;
        unsigned long failures = 0;
        forEachAllocationFailure(
                [&] {
                    std::unique_ptr<C> c = make();
                    before = contents(*c);
                    cursor = cursorIndex(*c);
                    capture.clear();
                    KR_clearStatusCode();
                    return c;
                },
                [&](std::unique_ptr<C>& c) { return row.op(*c); },
                [&](std::unique_ptr<C>& c, KR_RET_STATUS st, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                    std::string report = capture.located();
                    EXPECT_NE(reports.end(), std::find(reports.begin(), reports.end(), report))
                            << report;
                    EXPECT_EQ(before, contents(*c));
                    EXPECT_EQ(cursor, cursorIndex(*c));
                });
        EXPECT_EQ(row.allocations, failures);
    }
}

}  // namespace krtest

#endif  // KRCORE_TESTS_CONTAINER_MODEL_H
