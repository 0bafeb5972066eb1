// container_model.h — oracles shared by the container suites: an element type that owns heap
// memory and counts its instances, and models of the array and list cursor rules beside
// std::vector and std::list, to drive the containers with seeded random operation sequences.
#ifndef KRCORE_TESTS_CONTAINER_MODEL_H
#define KRCORE_TESTS_CONTAINER_MODEL_H

#include <algorithm>
#include <iterator>
#include <list>
#include <random>
#include <string>
#include <type_traits>
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

// The rules of KR_Array and KR_VCArray over a std::vector: clamping of indices, and a cursor
// that keeps its index across length changes (a null cursor going to element 0).
struct ArrayModel {
    std::vector<unsigned int> v;
    bool null = true;
    unsigned int idx = 0;

    unsigned int n() const { return static_cast<unsigned int>(v.size()); }

    void place(unsigned int i) {
        null = v.empty();
        idx = null ? 0 : i;
    }

    unsigned int kept() const {
        unsigned int i = null ? 0 : idx;
        if (n() <= i) i = n() == 0 ? 0 : n() - 1;
        return i;
    }

    KR_RET_STATUS insElems(int method, unsigned int index, unsigned int count) {
        if (count == 0) return KR_RET_FALSE;
        if (v.empty()) {
            v.assign(count, 0);
            place(0);
            return KR_RET_TRUE;
        }
        if (index >= n()) {
            index = n() - 1;
            method = 1;
        }
        unsigned int cursor = null ? 0 : idx;
        v.insert(v.begin() + (method ? index + 1 : index), count, 0u);
        place(cursor);
        return KR_RET_TRUE;
    }

    KR_RET_STATUS delElems(unsigned int index, unsigned int count) {
        if (count == 0 || index >= n()) return KR_RET_FALSE;
        if (count > n() - index) count = n() - index;
        v.erase(v.begin() + index, v.begin() + index + count);
        place(kept());
        return KR_RET_TRUE;
    }

    KR_RET_STATUS setCurIndex(unsigned int i) {
        if (i >= n()) {
            null = true;
            idx = 0;
            return KR_RET_FALSE;
        }
        null = false;
        idx = i;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS setCurNext() { return null ? KR_RET_FALSE : setCurIndex(idx + 1); }

    KR_RET_STATUS setCurPrev() { return null ? KR_RET_FALSE : setCurIndex(idx - 1); }

    KR_RET_STATUS delCurElem(bool moveNext) {
        if (null) return KR_RET_FALSE;
        delElems(idx, 1);
        if (moveNext) setCurNext();
        return KR_RET_TRUE;
    }
};

// The rules of KR_LList over a std::list: refusal of missing indices, the index kept one too
// high after inserting before the cursor, and KR_RET_TRUE when stepping off either end.
struct ListModel {
    std::list<unsigned int> l;
    std::list<unsigned int>::iterator cur = l.end();
    unsigned int idx = 0;

    bool null() const { return cur == l.end(); }

    size_t pos() { return static_cast<size_t>(std::distance(l.begin(), cur)); }

    KR_RET_STATUS setCurIndex(unsigned int i) {
        cur = l.end();
        if (i >= l.size()) return KR_RET_FALSE;
        cur = std::next(l.begin(), i);
        idx = i;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS setCurNext() {
        if (null()) return KR_RET_FALSE;
        ++cur;
        ++idx;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS setCurPrev() {
        if (null()) return KR_RET_FALSE;
        if (cur == l.begin()) {
            cur = l.end();
        } else {
            --cur;
            --idx;
        }
        return KR_RET_TRUE;
    }

    KR_RET_STATUS insAtCur(int method, unsigned int x) {
        if (l.empty()) {
            l.push_back(x);
            return KR_RET_TRUE;
        }
        if (null()) return KR_RET_ERR_CALL;
        if (method == 0) {
            cur = l.insert(cur, x);
            ++idx;
        } else {
            l.insert(std::next(cur), x);
        }
        return KR_RET_TRUE;
    }

    KR_RET_STATUS insElems(int method, unsigned int index, unsigned int count) {
        if (count == 0) return KR_RET_FALSE;
        if (l.empty()) {
            l.push_back(0);
            if (--count == 0) return KR_RET_TRUE;
        }
        if (setCurIndex(index) != KR_RET_TRUE) return KR_RET_FALSE;
        while (count-- > 0)
            insAtCur(method, 0);
        return KR_RET_TRUE;
    }

    void preappend(unsigned int x) {
        l.push_front(x);
        if (!null()) ++idx;
    }

    KR_RET_STATUS delCurElem(bool moveNext) {
        if (null()) return KR_RET_FALSE;
        bool wasFirst = cur == l.begin();
        bool wasLast = std::next(cur) == l.end();
        auto after = l.erase(cur);
        if (wasFirst || !wasLast) {
            cur = after;
        } else {
            cur = std::prev(l.end());
            --idx;
        }
        if (l.empty()) return KR_RET_TRUE;
        if (moveNext) {
            if (std::next(cur) == l.end()) {
                cur = l.end();
            } else {
                ++cur;
                ++idx;
            }
        }
        return KR_RET_TRUE;
    }

    KR_RET_STATUS delElems(unsigned int index, unsigned int count) {
        if (setCurIndex(index) != KR_RET_TRUE) return KR_RET_FALSE;
        for (unsigned int k = 0; k < count && !null(); ++k) {
            delCurElem(std::next(cur) == l.end());
        }
        return KR_RET_TRUE;
    }

    KR_RET_STATUS delElem(unsigned int x) {
        auto it = l.begin();
        while (it != l.end() && *it != x)
            ++it;
        if (it == l.end()) return KR_RET_FALSE;
        if (cur == it) {
            if (std::next(it) != l.end()) {
                cur = std::next(it);
            } else if (it != l.begin()) {
                cur = std::prev(it);
                --idx;
            } else {
                cur = l.end();
            }
        } else if (!null() && std::distance(l.begin(), cur) > std::distance(l.begin(), it)) {
            --idx;
        }
        l.erase(it);
        return KR_RET_TRUE;
    }
};

// The values of a container's elements in index order (walks a list from its head each time).
template <class C>
std::vector<unsigned int> contents(C& c) {
    std::vector<unsigned int> out;
    for (unsigned int i = 0; i < c.numElems(); ++i)
        out.push_back(valueOf(c[i]));
    return out;
}

// Status text of a report through KR_reportStatus, as ReportCapture::located() shows it.
inline std::string statusReport(const char* unit, const char* text) {
    return std::string(unit) + ": line N: \n" + text + "\n\n";
}

// Compares contents and cursor of an array-like container with the model.
template <class C>
void expectSameArray(C& c, const ArrayModel& m) {
    ASSERT_EQ(m.n(), c.numElems());
    for (unsigned int i = 0; i < m.n(); ++i)
        ASSERT_EQ(m.v[i], valueOf(c[i])) << "element " << i;
    unsigned int index = 99;
    EXPECT_KR_STATUS(m.null ? KR_RET_FALSE : KR_RET_TRUE, c.getCurIndex(index));
    EXPECT_EQ(m.idx, index);
    typename std::remove_reference<decltype(c[0])>::type* elem = nullptr;
    c.getCurElem(&elem);
    EXPECT_EQ(m.null ? nullptr : &c[m.idx], elem);
}

// Drives an array-like container and the model with the same seeded random operations and
// compares status, contents and cursor after every step.
template <class C>
void driveLikeArray(C& c, unsigned int seed, int steps) {
    using T = typename std::remove_reference<decltype(c[0])>::type;
    ArrayModel m;
    std::mt19937 rng(seed);
    auto pick = [&rng](unsigned int hi) {
        return std::uniform_int_distribution<unsigned int>(0, hi)(rng);
    };
    for (int step = 0; step < steps; ++step) {
        unsigned int op = pick(9), a = pick(m.n() + 2), b = pick(4), x = pick(1000) + 1;
        SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(op));
        KR_RET_STATUS want = KR_RET_TRUE;
        KR_RET_STATUS got = KR_RET_TRUE;
        switch (op) {
            case 0:
                want = m.insElems(x & 1, a, b);
                got = c.insElems(static_cast<KR_INS_METHOD>(x & 1), a, b);
                break;
            case 1:
                want = m.delElems(a, b);
                got = c.delElems(a, b);
                break;
            case 2:
                m.insElems(1, m.n() == 0 ? 0 : m.n() - 1, 1);
                m.v.back() = x;
                got = c.appendElem(T(x));
                break;
            case 3:
                m.insElems(0, 0, 1);
                m.v.front() = x;
                got = c.preappendElem(T(x));
                break;
            case 4:
                want = m.delCurElem(b & 1);
                got = c.delCurElem(b & 1);
                break;
            case 5:
                want = m.setCurIndex(a);
                got = c.setCurIndex(a);
                break;
            case 6:
                want = m.setCurNext();
                got = c.setCurNext();
                break;
            case 7:
                want = m.setCurPrev();
                got = c.setCurPrev();
                break;
            case 8:
                want = m.null ? KR_RET_FALSE : KR_RET_TRUE;
                if (!m.null) m.v[m.idx] = x;
                got = c.setCurElem(T(x));
                break;
            default: {
                // delElem: the first equal element, found by the locked cursor walk.
                if (m.n() > 0 && (x & 1)) x = m.v[a % m.n()];
                auto it = std::find(m.v.begin(), m.v.end(), x);
                want = it == m.v.end() ? KR_RET_FALSE : KR_RET_TRUE;
                m.setCurIndex(static_cast<unsigned int>(it - m.v.begin()));
                m.delCurElem(false);
                got = c.delElem(T(x));
                EXPECT_FALSE(c.isLocked());
            }
        }
        EXPECT_KR_STATUS(want, got);
        expectSameArray(c, m);
        if (::testing::Test::HasFailure()) return;
    }
}

}  // namespace krtest

#endif  // KRCORE_TESTS_CONTAINER_MODEL_H
