// test_btreefile.cpp — the B-tree in a record file: the seeded oracle with node caches and a
// reopen, golden bytes, failed writes and reads, crash replay and damaged files.
#include <stdlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "btree_support.h"

using krtest::entries;
using krtest::key1;
using krtest::keyOf;
using krtest::Place;
using krtest::problemsOf;
using krtest::runModel;
using krtest::schema;

TEST(BtreeFile, SeededModelWithCachesAndReopen) {
    const Place places[] = {{"file, cache all", true, 0, 0},
                            {"file, 16 nodes", true, 16, 0},
                            {"file, 8 KiB", true, 0, 8192}};
    for (const Place& place : places) {
        for (unsigned int order : {3u, 64u}) {
            runModel(order, KR_VAR_STRING, 0, place);
            runModel(order, KR_VAR_UINT, 1, place);
        }
    }
    runModel(4, KR_VAR_STRING, 1, {"file, 16 nodes, values", true, 16, 0}, 100);
}

namespace {

using krtest::readBytes;
using State = std::vector<std::pair<unsigned int, unsigned long long>>;

State stateOf(KR_Btree& t) {
    State state;
    for (auto& e : entries(t))
        state.emplace_back(static_cast<unsigned int>(e.first[0]), e.second);
    return state;
}

// The state of the file at path as a fresh reader sees it; false when it does not open.
bool openState(const std::string& path, State& state) {
    KR_Btree t;
    if (t.openFile(path.c_str(), KR_FILE_MODE_READ) != KR_RET_TRUE) return false;
    unsigned int problems = 0;
    EXPECT_KR_OK(t.checkConsistency(problems));
    state = stateOf(t);
    return true;
}

void fillUint(KR_Btree& t, const std::string& path, unsigned int order, unsigned int count) {
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
    ASSERT_KR_OK(t.createFile(path.c_str(), types, order, 1));
    for (unsigned int k = 1; k <= count; ++k) {
        KR_VarArr key = keyOf(k * 7 % 101);
        ASSERT_KR_OK(t.insert(key, k));
    }
}

// The file at path must equal its committed copy in the test data (KR_WRITE_GOLDEN=1 writes
// the copy anew); answers the copy's path.
std::string expectGoldenBytes(const std::string& path, const char* name) {
    const std::string bytes = readBytes(path);
    const std::string golden = std::string(KR_TEST_DATA_DIR) + "/" + name;
    if (getenv("KR_WRITE_GOLDEN") != nullptr) krtest::writeBytes(golden, bytes);
    EXPECT_EQ(readBytes(golden), bytes);
    return golden;
}

}  // namespace

// The byte limit holds while changes wait for a flush: changed nodes leave the cache written.
TEST(BtreeFile, CacheLimitHoldsBetweenFlushes) {
    krtest::TempDir dir;
    const std::string path = dir.file("l.kbt");
    KR_Btree t;
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
    ASSERT_KR_OK(t.createFile(path.c_str(), types, 8, 1, 32));
    ASSERT_KR_OK(t.setCacheSize(0, 16384));
    unsigned long long most = 0;
    std::string value(32, 'v');
    for (unsigned int i = 0; i < 3000; ++i) {
        KR_VarArr k = keyOf(i * 7919 % 3000);
        ASSERT_KR_OK(t.insert(k, i, value.data()));
        most = std::max(most, t.getCacheBytes());
    }
    EXPECT_GT(t.getNodeCount(), 300u);  // far more than 16 KiB holds
    // One operation may hold its path and the nodes it makes beyond the limit, a few KiB here.
    EXPECT_LT(most, 24u * 1024);
    ASSERT_KR_OK(t.flush(0));
    ASSERT_KR_OK(t.close());
    ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(0u, problemsOf(t));
    EXPECT_EQ(3000u, entries(t).size());
}

TEST(BtreeFile, GoldenBytesAreTheSameEverywhere) {
    krtest::TempDir dir;
    const std::string path = dir.file("small.kbt");
    {
        // Wide text above U+FFFF and in U+E000..U+FFFF, and long values of either sign.
        KR_Btree t;
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_STRINGW, KR_VAR_LONG});
        ASSERT_KR_OK(t.createFile(path.c_str(), types, 3, 1));
        // U+10400 then "A": a surrogate pair with 16-bit wchar_t, one unit with 32-bit.
        const wchar_t deseret[] = {sizeof(wchar_t) == 2 ? 0xD801 : 0x10400,
                                   sizeof(wchar_t) == 2 ? 0xDC00 : 0x41,
                                   sizeof(wchar_t) == 2 ? 0x41 : 0, 0};
        const wchar_t* texts[] = {L"a", L"\xE000z", deseret, L"", L"zz", L"b", L"\xFFFD"};
        for (int i = 0; i < 7; ++i) {
            KR_VarArr key(2, KR_VAR_WILD, static_cast<unsigned char>(0));
            key[0] = texts[i];
            key[1] = static_cast<long>(i * 1000 - 3000);
            ASSERT_KR_OK(t.insert(key, 100u * i));
            if (i == 4) {
                ASSERT_KR_OK(t.remove(key));
            }
        }
        ASSERT_KR_OK(t.close());
    }
    const std::string golden = expectGoldenBytes(path, "btree_small.kbt");
    KR_Btree t;
    ASSERT_KR_OK(t.openFile(golden.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(0u, problemsOf(t));
    auto got = entries(t);
    ASSERT_EQ(6u, got.size());
    // UTF-16 order: "", "a", "b", the pair (D801), U+E000, U+FFFD.
    std::string refs;
    for (auto& e : got)
        refs += std::to_string(e.second) + " ";
    EXPECT_EQ("300 0 500 200 100 600 ", refs);
    KR_VarArr key = key1();
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, t.insert(key, 1));  // read-only
}

TEST(BtreeFile, GoldenBytesOfValuesAreTheSameEverywhere) {
    krtest::TempDir dir;
    const std::string path = dir.file("values.kbt");
    {
        // Three-byte values after each key, and the value size in the header.
        KR_Btree t;
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_STRING});
        ASSERT_KR_OK(t.createFile(path.c_str(), types, 3, 1, 3));
        const char* texts[] = {"m", "c", "x", "a", "q"};
        for (const char* text : texts) {
            KR_VarArr key = keyOf(text);
            ASSERT_KR_OK(t.insert(key, text[0], (std::string(text) + "!?").c_str()));
        }
        KR_VarArr key = keyOf("c");
        ASSERT_KR_OK(t.update(key, 7, "C.."));
        ASSERT_KR_OK(t.close());
    }
    const std::string golden = expectGoldenBytes(path, "btree_values.kbt");
    KR_Btree t;
    ASSERT_KR_OK(t.openFile(golden.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(3u, t.getValueSize());
    EXPECT_EQ(0u, problemsOf(t));
    std::string walked;
    for (KR_RET_STATUS st = t.setCurFirst(); st == KR_RET_TRUE; st = t.setCurNext()) {
        KR_VarArr key = key1();
        unsigned long long ref;
        char value[3];
        ASSERT_KR_OK(t.getCur(key, ref, value));
        walked += std::to_string(ref) + ":" + std::string(value, 3) + " ";
    }
    EXPECT_EQ("97:a!? 7:C.. 109:m!? 113:q!? 120:x!? ", walked);
}

TEST(BtreeFile, FailedWritesFallBackToTheLastFlush) {
    krtest::TempDir dir;
    const std::string path = dir.file("w.kbt");
    State committed, changed;
    auto setup = [&]() {
        KR_Btree t;
        fillUint(t, path, 3, 60);
        EXPECT_KR_OK(t.close());
    };
    auto change = [](KR_Btree& t) {
        KR_RET_STATUS st = t.setCacheSize(16);
        for (unsigned int k = 1; k <= 40 && st == KR_RET_TRUE; ++k) {
            KR_VarArr add = keyOf(200 + k), gone = keyOf(k * 7 % 101);
            st = t.insert(add, k);
            if (st == KR_RET_TRUE) st = t.remove(gone);
        }
        // The removes left reserved nodes: their release is a commit of its own, which no
        // later fallback may leave half undone.
        if (st == KR_RET_TRUE && t.getReservedCount() == 0) return KR_RET_ERR_CALL;
        if (st == KR_RET_TRUE) st = t.releaseReserved();
        return st == KR_RET_TRUE ? t.flush(1) : st;
    };
    setup();
    ASSERT_TRUE(openState(path, committed));
    {
        KR_Btree t;
        ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
        ASSERT_KR_OK(change(t));
        EXPECT_EQ(0u, t.getReservedCount());
        EXPECT_EQ(0u, problemsOf(t));
        changed = stateOf(t);
    }
    krtest::ReportCapture capture;
    for (bool tear : {false, true}) {
        for (size_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(tear ? "torn" : "failed") + " event " + std::to_string(n));
            setup();
            KR_Btree t;
            ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
            krtest::WriteLog log;
            log.fail = n;
            log.tear = tear;
            KR_RET_STATUS status = change(t);
            if (log.events.size() < n) {
                EXPECT_KR_OK(status);
                break;
            }
            EXPECT_KR_STATUS(KR_RET_ERR_FILE, status);
            State shown, reopened;
            if (t.isOpen()) {
                shown = stateOf(t);
                EXPECT_TRUE(shown == committed || shown == changed);
                EXPECT_EQ(0u, problemsOf(t));
                t.close();
            }
            EXPECT_TRUE(openState(path, reopened));
            EXPECT_TRUE(reopened == committed || reopened == changed);
            if (::testing::Test::HasFailure()) return;
            capture.clear();
        }
    }
}

// A read that fails after releaseReserved takes the tree back to its last flush: the release
// must be part of it, not a set of deleted records the restored reserved list still names.
TEST(BtreeFile, ReleasedNodesStayReleasedAfterAFailedRead) {
    krtest::TempDir dir;
    const std::string path = dir.file("r.kbt");
    std::string leafBytes;
    {
        KR_Btree t;
        fillUint(t, path, 3, 100);
        for (unsigned int k = 1; k <= 60; ++k) {
            KR_VarArr gone = keyOf(k * 7 % 101);
            ASSERT_KR_OK(t.remove(gone));
        }
        ASSERT_KR_OK(t.close());
    }
    unsigned int leaf = 0;
    {
        KR_Btree t;
        ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_READ));
        for (unsigned int id = t.getRootId(), n, h; t.getNodeInfo(id, n, h) == KR_RET_TRUE;) {
            leaf = id;
            if (h == 1 || t.getNodeChild(id, n, id) != KR_RET_TRUE) break;
        }
        ASSERT_GT(t.getReservedCount(), 0u);
        KR_FileBinaryRec file;
        ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
        KR_Memory memory;
        ASSERT_KR_OK(file.recRead(leaf, memory));
        leafBytes.assign(static_cast<const char*>(memory.memPtr()), memory.memSize());
    }
    // Damage every stored copy of the last leaf, so that reading it fails its checksum.
    std::string bytes = krtest::readBytes(path);
    size_t copies = 0;
    for (size_t at = bytes.find(leafBytes); at != std::string::npos;
         at = bytes.find(leafBytes, at + 1), ++copies)
        bytes[at + leafBytes.size() - 1] ^= 0x5A;
    ASSERT_GT(copies, 0u);
    krtest::writeBytes(path, bytes);

    KR_Btree t;
    ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
    ASSERT_KR_OK(t.setCacheSize(16));
    ASSERT_KR_OK(t.releaseReserved());
    EXPECT_KR_OK(t.setCurFirst());  // the nodes not in the cache are still there
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, t.setCurLast());
    ASSERT_TRUE(t.isOpen());
    EXPECT_EQ(0u, t.getReservedCount());
    unsigned long long count = 0;
    EXPECT_KR_OK(t.getEntryCount(count));
    EXPECT_EQ(40u, count);
    EXPECT_KR_OK(t.reserveNodes(2));
    EXPECT_KR_OK(t.close());
}

// A seeded run with commits to the device, its write log replayed onto an empty file: every
// prefix (a kill at that point) opens as the tree of the last flush it completed.
TEST(BtreeFileCrash, EveryReplayedPrefixOpensAtALastFlush) {
    krtest::TempDir dir;
    const std::string path = dir.file("c.kbt"), copy = dir.file("copy.kbt");
    std::vector<State> commits;
    std::vector<size_t> done;
    std::vector<std::pair<long long, std::string>> events;
    {
        krtest::WriteLog log;
        KR_Btree t;
        auto commit = [&]() {
            size_t end = log.events.size();
            while (end > 0 && log.events[end - 1].first < 0)
                --end;
            commits.push_back(stateOf(t));
            done.push_back(end);
        };
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
        ASSERT_KR_OK(t.createFile(path.c_str(), types, 4, 1));
        ASSERT_KR_OK(t.setCacheSize(16));
        commit();
        std::mt19937 rng(21);
        for (int step = 1; step <= 600; ++step) {
            KR_VarArr k = keyOf(static_cast<unsigned int>(rng() % 300));
            if (rng() % 3 != 0) {
                t.insert(k, step);
            } else {
                t.remove(k);
            }
            if (step % 40 == 0) {
                ASSERT_KR_OK(t.flush(1));
                commit();
            }
        }
        events = log.events;
    }
    krtest::ReportCapture capture;  // the images that do not open report
    std::string image;
    for (size_t k = 0; k <= events.size(); ++k) {
        SCOPED_TRACE("prefix " + std::to_string(k));
        krtest::writeBytes(copy, image);
        int expected = -1;
        for (size_t c = 0; c < done.size() && done[c] <= k; ++c)
            expected = static_cast<int>(c);
        State state;
        ASSERT_EQ(expected >= 0, openState(copy, state));
        if (expected >= 0) {
            ASSERT_EQ(commits[static_cast<size_t>(expected)], state);
        }
        if (k < events.size()) krtest::apply(image, events[k], events[k].second.size());
    }
}

TEST(BtreeFile, DamageIsFoundNotBelieved) {
    krtest::TempDir dir;
    const std::string path = dir.file("d.kbt");
    unsigned int root = 0, child0 = 0, child1 = 0, leaf = 0;
    {
        KR_Btree t;
        fillUint(t, path, 3, 30);
        root = t.getRootId();
        t.getNodeChild(root, 0, child0);
        t.getNodeChild(root, 1, child1);
        for (unsigned int id = child0, n, h; t.getNodeInfo(id, n, h) == KR_RET_TRUE && h > 1;) {
            t.getNodeChild(id, 0, id);
            leaf = id;
        }
        ASSERT_KR_OK(t.close());
    }

    // Each row changes one record's bytes through the record file itself.
    struct Row {
        const char* name;
        unsigned int record;
        std::function<void(std::string&)> damage;
    } rows[] = {
            {"child points at the header", root, [](std::string& b) { b[12] = b[13] = 0; }},
            {"child points at its parent", child0, [&](std::string& b) { b[12] = char(root); }},
            {"two parents share a child", root,
             [&](std::string& b) { b.replace(12, 4, b, 16, 4); }},
            {"more keys than the order", leaf, [](std::string& b) { b[8] = 9; }},
            {"truncated", leaf, [](std::string& b) { b.pop_back(); }},
            {"bad order in the header", 0, [](std::string& b) { b[20] = 2; }},
            {"root beyond the file", 0, [](std::string& b) { b[31] = 1; }},
            {"value size above 65535", 0, [](std::string& b) { b[62] = 1; }},
            {"values the nodes do not hold", 0, [](std::string& b) { b[60] = 4; }},
    };

    krtest::ReportCapture capture;
    for (auto& row : rows) {
        SCOPED_TRACE(row.name);
        KR_Btree pristine;
        fillUint(pristine, path, 3, 30);
        pristine.close();
        {
            KR_FileBinaryRec file;
            ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_UPDATE));
            KR_Memory memory;
            ASSERT_KR_OK(file.recRead(row.record, memory));
            std::string bytes(static_cast<const char*>(memory.memPtr()), memory.memSize());
            row.damage(bytes);
            ASSERT_KR_OK(file.recWrite(row.record, bytes.data(), (unsigned int)bytes.size()));
            ASSERT_KR_OK(file.close());
        }
        KR_Btree t;
        KR_RET_STATUS opened = t.openFile(path.c_str(), KR_FILE_MODE_READ);
        if (opened != KR_RET_TRUE) {
            EXPECT_KR_STATUS(KR_RET_ERR_FILE, opened);
            continue;
        }
        unsigned int problems = 0;
        KR_RET_STATUS checked = t.checkConsistency(problems);
        EXPECT_TRUE(checked == KR_RET_FALSE || checked == KR_RET_ERR_FILE);
        EXPECT_TRUE(checked == KR_RET_ERR_FILE || problems > 0);
        entries(t);  // bounded, whatever it finds
        t.setCacheSize(16);
        for (KR_RET_STATUS st = t.setCurLast(); st == KR_RET_TRUE; st = t.setCurPrev()) {
        }
    }
}
