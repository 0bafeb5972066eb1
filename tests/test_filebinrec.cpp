// test_filebinrec.cpp — the record file: layout, reuse, damage, failures, crashes, a model.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#if defined(__linux__)
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "record_support.h"
#include "test_support.h"

namespace {

using krtest::apply;
using krtest::readBytes;
using krtest::TempDir;
using krtest::writeBytes;
using krtest::WriteLog;

using Records = std::map<unsigned int, std::string>;

unsigned int crc32(const std::string& bytes) {
    unsigned int crc = 0xFFFFFFFFu;
    for (unsigned char b : bytes) {
        crc ^= b;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    return ~crc;
}

unsigned long long le(const std::string& s, size_t at, int width) {
    unsigned long long v = 0;
    for (int i = width - 1; i >= 0; --i)
        v = v << 8 | static_cast<unsigned char>(s[at + i]);
    return v;
}

void putLe(std::string& s, size_t at, unsigned long long v, int width) {
    for (int i = 0; i < width; ++i, v >>= 8)
        s[at + i] = static_cast<char>(v & 0xFF);
}

Records readAll(KR_FileBinaryRec& file) {
    Records out;
    unsigned int at = 0;
    for (KR_RET_STATUS s = file.recFirst(at); s == KR_RET_TRUE; s = file.recNext(at)) {
        KR_Memory memory;
        EXPECT_KR_OK(file.recRead(at, memory));
        out[at] = std::string(static_cast<const char*>(memory.memPtr()), memory.memSize());
    }
    return out;
}

// One seeded step against the model: add, rewrite, delete or reserve.
void step(KR_FileBinaryRec& file, Records& model, std::mt19937& random) {
    unsigned int size = random() % 10 == 0 ? 1000 + random() % 20000 : random() % 300;
    std::string bytes(size, static_cast<char>('a' + random() % 26));
    if (size > 0) bytes[random() % size] = static_cast<char>(random());
    unsigned int op = random() % 10, at = 0;
    if (model.empty() || op < 4) {
        ASSERT_KR_OK(file.recAppend(bytes.data(), size, at));
        ASSERT_FALSE(model.count(at)) << at;
        model[at] = bytes;
    } else if (op < 8) {
        auto it = std::next(model.begin(), static_cast<long>(random() % model.size()));
        if (op < 7) {
            ASSERT_KR_OK(file.recWrite(it->first, bytes.data(), size));
            it->second = bytes;
        } else {
            ASSERT_KR_OK(file.recDelete(it->first));
            model.erase(it);
        }
    } else {
        ASSERT_KR_OK(file.recReserve(1 + random() % 3, random() % 200));
    }
}

// The seeded sequence that the crash tests run: steps, a commit every 8 steps (to the device),
// and onCommit called with the state of every completed commit.
void runSequence(const std::string& path,
                 unsigned int seed,
                 int steps,
                 const std::function<void(const Records&)>& onCommit) {
    KR_FileBinaryRec file;
    ASSERT_KR_OK(file.create(path.c_str(), 7, 0, 1));
    Records model;
    onCommit(model);
    std::mt19937 random(seed);
    for (int i = 1; i <= steps; ++i) {
        step(file, model, random);
        if (i % 8 == 0) {
            ASSERT_KR_OK(file.recFlush(1));
            onCommit(model);
        }
    }
}

// What open gives for the file at path: the records, or nothing when it does not open cleanly.
bool openState(const std::string& path, Records& records) {
    KR_FileBinaryRec file;
    if (file.open(path.c_str(), KR_FILE_MODE_READ) != KR_RET_TRUE) return false;
    unsigned int problems = 99;
    EXPECT_KR_STATUS(KR_RET_TRUE, file.recCheck(problems));
    records = readAll(file);
    return true;
}

}  // namespace

TEST(RecordFile, GoldenBytesAreTheSameEverywhere) {
    TempDir dir;
    const std::string path = dir.file("a.rec");
    KR_FileBinaryRec file;
    ASSERT_KR_OK(file.create(path.c_str(), 0x5442524B, 0, 1));
    ASSERT_KR_OK(file.close());
    std::string bytes = readBytes(path);
    ASSERT_EQ(1024u, bytes.size());
    std::string slot(128, '\0');  // magic, version 1.0.0, slot size, kind, CRC flag, seq 1, end
    slot.replace(0, 8, "\x89KRREC\r\n");
    putLe(slot, 8, 1, 4);
    putLe(slot, 20, 128, 4);
    slot.replace(24, 4, "KRBT");
    putLe(slot, 28, KR_BINREC_FLAG_CRC, 4);
    putLe(slot, 48, 1, 8);
    putLe(slot, 56, 1024, 8);
    putLe(slot, 124, crc32(slot.substr(0, 124)), 4);
    EXPECT_EQ(slot, bytes.substr(0, 128));
    EXPECT_EQ(std::string(1024 - 128, '\0'), bytes.substr(128));
    // A small file of every kind of entry: the same bytes on every target.
    ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_UPDATE));
    unsigned int at = 0;
    ASSERT_KR_OK(file.recAppend("hello", 5, at, 3));
    ASSERT_KR_OK(file.recAppend("", 0, at));
    ASSERT_KR_OK(file.recReserve(2, 20));
    ASSERT_KR_OK(file.recFlush());
    ASSERT_KR_OK(file.recDelete(0));
    KR_Version format;
    EXPECT_KR_STATUS(KR_RET_TRUE, file.recFormatVersion(format));
    EXPECT_TRUE(format == KR_Version(1, 0, 0));
    EXPECT_LE(file.recNum(), file.recTableSize());
    ASSERT_KR_OK(file.close());
    EXPECT_KR_STATUS(KR_RET_FALSE, file.recFormatVersion(format));
    EXPECT_TRUE(format == KR_Version(0, 0, 0));
    EXPECT_EQ(0u, file.recTableSize());
    bytes = readBytes(path);
    EXPECT_EQ(17848u, bytes.size());
    EXPECT_EQ(0x466CADD7u, crc32(bytes));
    EXPECT_EQ(0xCBF43926u, crc32("123456789"));  // the test's own CRC is the standard one
}

TEST(RecordFile, ReuseWaitsForTheNextCommit) {
    TempDir dir;
    const std::string path = dir.file("a.rec");
    KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_WRITE);
    unsigned int at = 0;
    for (unsigned int size : {10u, 20u, 30u})
        ASSERT_KR_OK(file.recAppend(std::string(size, 'x').data(), size, at));
    ASSERT_KR_OK(file.recFlush());
    ASSERT_KR_OK(file.recDelete(1));
    EXPECT_KR_STATUS(KR_RET_FALSE, file.recDelete(1));
    ASSERT_KR_OK(file.recAppend("sixteen bytes...", 16, at));
    EXPECT_EQ(3u, at);  // number 1's space is still the last commit's
    ASSERT_KR_OK(file.recFlush());
    ASSERT_KR_OK(file.recAppend("sixteen bytes...", 16, at));
    EXPECT_EQ(1u, at);  // now it is free
    // A rewrite keeps the number; a committed record moves, a fresh one stays.
    KR_FileBinrecTblEntry before, after;
    ASSERT_KR_OK(file.recGetEntry(1, before));
    ASSERT_KR_OK(file.recWrite(1, "changed", 7));
    ASSERT_KR_OK(file.recGetEntry(1, after));
    EXPECT_EQ(before.offset, after.offset);
    ASSERT_KR_OK(file.recFlush());
    ASSERT_KR_OK(file.recWrite(1, std::string(100, 'g').data(), 100));  // grows and moves
    ASSERT_KR_OK(file.recGetEntry(1, after));
    EXPECT_TRUE(after.offset != before.offset && after.capacity >= 100 && after.size == 100);
    // Freed space is reused by the closest fit, and a committed record that moves takes only
    // what it needs.
    ASSERT_KR_OK(file.create(path.c_str(), 0, 0, 0));
    for (unsigned int size : {1000u, 600u, 904u, 3000u})
        ASSERT_KR_OK(file.recAppend(std::string(size, 'x').data(), size, at));
    ASSERT_KR_OK(file.recFlush());
    for (unsigned int index : {0u, 1u, 2u})
        ASSERT_KR_OK(file.recDelete(index));
    ASSERT_KR_OK(file.recFlush());
    ASSERT_KR_OK(file.recAppend(std::string(850, 'y').data(), 850, at));
    ASSERT_KR_OK(file.recGetEntry(at, after));
    EXPECT_EQ(904u, after.capacity);
    ASSERT_KR_OK(file.recFlush());
    ASSERT_KR_OK(file.recWrite(3, std::string(3100, 'z').data(), 3100));
    ASSERT_KR_OK(file.recGetEntry(3, after));
    EXPECT_EQ(3100u, after.capacity);
    unsigned int problems = 9;
    EXPECT_KR_STATUS(KR_RET_TRUE, file.recCheck(problems));
    // Fixed-size files refuse other sizes and reuse reserved entries last in, first out;
    // reserving first means the file does not grow.
    ASSERT_KR_OK(file.create(path.c_str(), 0, 64, 0));
    ASSERT_KR_OK(file.recReserve(3, 64));
    long long size = 0, grown = 0;
    ASSERT_KR_OK(file.getSize(size));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.recAppend("x", 1, at));
    for (unsigned int expected : {2u, 1u, 0u}) {
        ASSERT_KR_OK(file.recAppend(std::string(64, 'f').data(), 64, at));
        EXPECT_EQ(expected, at);
    }
    ASSERT_KR_OK(file.getSize(grown));
    EXPECT_EQ(size, grown);
    // Objects as records, and a record that is not the object's packing.
    KR_Version version(1, 0, 0), out;
    KR_String text("a record"), back;
    ASSERT_KR_OK(file.create(path.c_str(), 0, 0, 1));
    ASSERT_KR_OK(file.recAppendObj(text, version, at));
    ASSERT_KR_OK(file.recAppendObj(version, version, at));
    ASSERT_KR_OK(file.recReadObj(0, back, version));
    ASSERT_KR_OK(file.recReadObj(1, out, version));
    EXPECT_TRUE(back == text && out == version);
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.recReadObj(0, out, version));
}

TEST(RecordFile, ChecksumsAreCrc32AtEveryLength) {
    TempDir dir;
    KR_FileBinaryRec file;
    ASSERT_KR_OK(file.create(dir.file("c.rec").c_str(), 0, 0, 1));
    std::mt19937 rng(7);
    std::vector<unsigned int> sizes;
    for (unsigned int size = 0; size <= 300; ++size)
        sizes.push_back(size);
    sizes.insert(sizes.end(), {1023, 1024, 4097, 70001});
    for (unsigned int size : sizes) {
        std::string bytes(size, '\0');
        for (char& c : bytes)
            c = static_cast<char>(rng());
        unsigned int at = 0;
        KR_FileBinrecTblEntry entry;
        ASSERT_KR_OK(file.recAppend(bytes.data(), size, at));
        ASSERT_KR_OK(file.recGetEntry(at, entry));
        ASSERT_EQ(crc32(bytes), entry.crc) << size;
    }
}

TEST(RecordFile, SeededModelWithChecksAndReopens) {
    TempDir dir;
    const std::string path = dir.file("m.rec");
    KR_FileBinaryRec file;
    ASSERT_KR_OK(file.create(path.c_str(), 0, 0, 1));
    Records model;
    std::mt19937 random(20261124);
    for (int i = 1; i <= 2000 && !::testing::Test::HasFatalFailure(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        step(file, model, random);
        if (i % 100 == 0) {
            unsigned int problems = 99;
            ASSERT_KR_STATUS(KR_RET_TRUE, file.recCheck(problems));
            ASSERT_EQ(model, readAll(file));
        }
        if (random() % 50 == 0) {
            ASSERT_KR_OK(file.recFlush());
        }
        if (random() % 200 == 0) {
            ASSERT_KR_OK(file.close());
            ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_UPDATE));
            ASSERT_EQ(model, readAll(file));
            ASSERT_EQ(model.size(), file.recUsed());
        }
    }
}

TEST(RecordFile, DamageIsFoundBeforeItIsBelieved) {
    TempDir dir;
    const std::string path = dir.file("d.rec");
    {
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_WRITE);
        unsigned int at = 0;
        for (const char* text : {"first", "second", "third"})
            ASSERT_KR_OK(file.recAppend(text, static_cast<unsigned int>(strlen(text)), at));
    }
    const std::string good = readBytes(path);
    // The newer slot (seq 2) is at 512; its directory names one chunk, whose current copy holds
    // the three entries.
    const size_t slot = 512, dir0 = le(good, slot + 64, 8) +
                                    le(good, slot + 72, 4) * 16 * le(good, slot + 44, 4);
    const size_t chunk = le(good, dir0, 8) + le(good, dir0 + 12, 4) * 16384;
    auto resealed = [&](std::string s) {  // chunk, directory and slot checksums made right
        putLe(s, dir0 + 8, crc32(s.substr(chunk, 96)), 4);
        putLe(s, slot + 76, crc32(s.substr(dir0, 16)), 4);
        putLe(s, slot + 124, crc32(s.substr(slot, 124)), 4);
        return s;
    };
    auto edit = [&](size_t at, unsigned long long v, int width, bool reseal) {
        std::string s = good;
        putLe(s, at, v, width);
        return reseal ? resealed(s) : s;
    };

    struct Row {
        const char* name;
        std::string bytes;
        KR_RET_STATUS status;
        const char* report;  // the report's text line, "" for none
    };

    const Row rows[] = {
            {"record bit", edit(1024, 'F', 1, false), KR_RET_TRUE, ""},
            {"chunk bit", edit(chunk + 40, 1, 1, false), KR_RET_ERR_FILE, "corrupt table"},
            {"both slots", edit(100, 1, 1, false).replace(612, 1, "x"), KR_RET_ERR_FILE,
             "corrupt header"},
            {"truncated", good.substr(0, chunk + 50), KR_RET_ERR_FILE, "corrupt table"},
            {"count 2^32-1", edit(slot + 36, 0xFFFFFFFF, 4, true), KR_RET_ERR_FILE,
             "corrupt header"},
            {"major 2", edit(slot + 8, 2, 4, true), KR_RET_ERR_NSUP, ""},
            {"offset wraps", edit(chunk + 32, ~0ULL, 8, true), KR_RET_ERR_FILE, "corrupt table"},
            {"overlap", edit(chunk + 32, le(good, chunk, 8) + 4, 8, true), KR_RET_ERR_FILE,
             "corrupt table"},
            {"old layout", std::string("KRBR\1\0\0\0", 8) + std::string(24, '\0'), KR_RET_FALSE,
             ""},
            {"short", "\x89KR", KR_RET_FALSE, ""},
    };
    krtest::ReportCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        writeBytes(path, row.bytes);
        capture.clear();
        KR_FileBinaryRec file;
        EXPECT_KR_STATUS(row.status, file.open(path.c_str(), KR_FILE_MODE_READ));
        EXPECT_NE(std::string::npos, capture.text().find(row.report));
        EXPECT_EQ(row.status == KR_RET_TRUE, file.isOpen() != 0);
        EXPECT_EQ(row.bytes, readBytes(path));
    }
    // The damaged record alone fails, and the check counts it.
    KR_FileBinaryRec file;
    writeBytes(path, rows[0].bytes);
    ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
    KR_Memory memory;
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.recRead(0, memory));
    EXPECT_EQ(0u, memory.memSize());
    EXPECT_NE(std::string::npos, capture.text().find("record 0: checksum mismatch"));
    EXPECT_KR_OK(file.recRead(1, memory));
    unsigned int problems = 0;
    EXPECT_KR_STATUS(KR_RET_FALSE, file.recCheck(problems));
    EXPECT_EQ(1u, problems);
    // A flipped bit in the newer slot is a torn commit: the older one is opened.
    writeBytes(path, edit(slot + 100, 1, 1, false));
    ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(0u, file.recNum());
}

// The log of a seeded run with commits to the device, replayed onto an empty file: every
// prefix (a kill), every write torn three ways, and between two syncs random subsets of the
// writes in random order (a power loss). Each must open at the last commit it completed.
TEST(RecordFileCrash, ReplayedWriteLogsOpenAtTheLastCompletedCommit) {
    TempDir dir;
    const std::string path = dir.file("c.rec"), copy = dir.file("copy.rec");
    std::vector<Records> commits;
    std::vector<size_t> done;  // events up to and including each commit's header write
    std::vector<std::pair<long long, std::string>> events;
    krtest::ReportCapture capture;  // the damaged images report
    {
        WriteLog log;
        runSequence(path, 77, 160, [&](const Records& state) {
            size_t end = log.events.size();
            while (end > 0 && log.events[end - 1].first < 0)
                --end;
            commits.push_back(state);
            done.push_back(end);
        });
        events = log.events;
    }
    ASSERT_GT(commits.size(), 15u);
    auto expectOpens = [&](const std::string& image, size_t complete, const std::string& what) {
        SCOPED_TRACE(what);
        writeBytes(copy, image);
        Records records;
        bool opened = openState(copy, records);
        int expected = -1;
        for (size_t c = 0; c < done.size() && done[c] <= complete; ++c)
            expected = static_cast<int>(c);
        EXPECT_EQ(expected >= 0, opened);
        if (opened && expected >= 0) {
            EXPECT_EQ(commits[static_cast<size_t>(expected)], records);
        }
    };
    unsigned int prefixes = 0, tears = 0, reorders = 0;
    std::string image;
    for (size_t k = 0; k <= events.size(); ++k) {
        expectOpens(image, k, "prefix " + std::to_string(k));
        ++prefixes;
        if (k == events.size()) break;
        const std::string& bytes = events[k].second;
        for (size_t cut : {size_t(1), bytes.size() / 2, bytes.size() - 1}) {
            if (events[k].first < 0 || cut == 0 || cut >= bytes.size()) continue;
            std::string torn = image;
            apply(torn, events[k], cut);
            std::string whole = torn;
            apply(whole, events[k], bytes.size());
            expectOpens(torn, torn == whole ? k + 1 : k, "write " + std::to_string(k) + " torn");
            ++tears;
        }
        apply(image, events[k], bytes.size());
        if (::testing::Test::HasFailure()) return;
    }
    // Segments between syncs, from the first sync on (creating a file is not a commit to disk).
    std::mt19937 random(5);
    std::string base;
    size_t start = 0;
    while (start < events.size() && events[start].first >= 0)
        apply(base, events[start], events[start].second.size()), ++start;
    while (start < events.size()) {
        size_t end = start + 1;
        while (end < events.size() && events[end].first >= 0)
            ++end;
        for (int round = 0; round < 12; ++round) {
            std::vector<size_t> order;
            for (size_t i = start + 1; i < end; ++i)
                if (random() % 2) order.push_back(i);
            std::shuffle(order.begin(), order.end(), random);
            std::string image2 = base;
            size_t complete = start;
            for (size_t i : order) {
                apply(image2, events[i], events[i].second.size());
                for (size_t d : done)
                    if (d == i + 1) complete = i + 1;
            }
            expectOpens(image2, complete, "segment at " + std::to_string(start));
            ++reorders;
        }
        for (size_t i = start; i < end; ++i)
            apply(base, events[i], events[i].second.size());
        start = end;
        if (::testing::Test::HasFailure()) return;
    }
    printf("crash replay: %zu events, %u prefixes, %u tears, %u reorderings\n", events.size(),
           prefixes, tears, reorders);
}

#if defined(__linux__)
// Writers killed at random moments: the file opens at the last commit the writer announced,
// or at the one it was completing.
TEST(RecordFileCrash, KilledWritersReopenAtAnAnnouncedCommit) {
    TempDir dir;
    std::vector<Records> commits;
    runSequence(dir.file("reference.rec"), 99, 400,
                [&](const Records& state) { commits.push_back(state); });
    std::mt19937 random(11);
    krtest::ReportCapture capture;
    unsigned int kills = 0;
    const auto started = std::chrono::steady_clock::now();
    while (kills < 40 && std::chrono::steady_clock::now() - started < std::chrono::seconds(4)) {
        const std::string path = dir.file("k" + std::to_string(kills) + ".rec");
        int fds[2];
        ASSERT_EQ(0, pipe(fds));
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(fds[0]);
            runSequence(path, 99, 400, [&](const Records&) {
                if (write(fds[1], "c", 1) != 1) _exit(2);
            });
            _exit(0);
        }
        close(fds[1]);
        usleep(random() % 40000);
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        char buffer[4096];
        size_t announced = 0;
        for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;)
            announced += static_cast<size_t>(n);
        close(fds[0]);
        SCOPED_TRACE("kill " + std::to_string(kills) + " after " + std::to_string(announced));
        Records records;
        bool opened = openState(path, records);
        ASSERT_TRUE(opened || announced == 0);
        if (opened) {
            bool atAnnounced = announced > 0 && records == commits[announced - 1];
            bool atNext = announced < commits.size() && records == commits[announced];
            EXPECT_TRUE(atAnnounced || atNext);
        }
        ++kills;
    }
    printf("kill soak: %u writers killed\n", kills);
}
#endif

// Each write (and sync) of a run of changes and its commit failing or torn in turn: the change
// answers KR_RET_ERR_FILE, and the object and the file show the last commit, or the new one
// when only its final sync failed.
TEST(RecordFileFaults, FailedWritesKeepTheLastCommit) {
    TempDir dir;
    const std::string path = dir.file("w.rec");
    const std::string big(70000, 'B');
    auto setup = [&](Records& model) {
        KR_FileBinaryRec file;
        EXPECT_KR_OK(file.create(path.c_str(), 0, 0, 1));
        for (unsigned int i = 0; i < 600; ++i) {
            std::string bytes(i % 50, static_cast<char>('a' + i % 26));
            unsigned int at = 0;
            EXPECT_KR_OK(file.recAppend(bytes.data(), static_cast<unsigned int>(bytes.size()), at));
            model[at] = bytes;
        }
    };
    Records committed, changed;
    setup(committed);
    changed = committed;
    changed[0] = "zero";
    changed.erase(1);
    changed[601] = big;  // 600 holds record 0's old extent
    krtest::ReportCapture capture;
    for (bool tear : {false, true}) {
        for (size_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(tear ? "torn" : "failed") + " event " + std::to_string(n));
            Records ignored;
            setup(ignored);
            KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_UPDATE);
            WriteLog log;
            log.fail = n;
            log.tear = tear;
            unsigned int at = 0;
            KR_RET_STATUS status = file.recWrite(0, "zero", 4);
            KR_Memory read;  // the write still buffered may fail here
            if (status == KR_RET_TRUE) status = file.recRead(0, read);
            if (status == KR_RET_TRUE) status = file.recDelete(1);
            if (status == KR_RET_TRUE) status = file.recAppend(big.data(), 70000, at);
            if (status == KR_RET_TRUE) status = file.recReserve(2, 100);
            if (status == KR_RET_TRUE) status = file.recFlush(1);
            if (log.events.size() < n) {
                EXPECT_KR_OK(status);
                EXPECT_EQ(changed, readAll(file));
                break;
            }
            EXPECT_KR_STATUS(KR_RET_ERR_FILE, status);
            Records shown = readAll(file), reopened;
            EXPECT_TRUE(shown == committed || shown == changed);
            EXPECT_TRUE(openState(path, reopened) && reopened == shown);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(RecordFileFaults, FailedAllocationsChangeNothing) {
    KR_REQUIRE_FAULT_INJECTION();
    TempDir dir;
    const std::string path = dir.file("a.rec");
    {
        KR_FileBinaryRec file;
        ASSERT_KR_OK(file.create(path.c_str(), 0, 0, 1));
        unsigned int at = 0;
        for (unsigned int i = 0; i < 512; ++i)  // the table and its chunks are full
            ASSERT_KR_OK(file.recAppend("rec", 3, at));
    }

    struct Row {
        const char* name;
        KR_RET_STATUS (*op)(KR_FileBinaryRec& file, const char* path);
    };

    const Row rows[] = {
            {"open",
             [](KR_FileBinaryRec& f, const char* p) { return f.open(p, KR_FILE_MODE_UPDATE); }},
            {"recAppend",
             [](KR_FileBinaryRec& f, const char*) {
                 unsigned int at = 0;
                 return f.recAppend("new", 3, at);
             }},
            {"recWrite", [](KR_FileBinaryRec& f, const char*) { return f.recWrite(5, "xyz", 3); }},
            {"recRead",
             [](KR_FileBinaryRec& f, const char*) {
                 KR_Memory memory;
                 return f.recRead(5, memory);
             }},
            {"recCheck",
             [](KR_FileBinaryRec& f, const char*) {
                 unsigned int problems = 0;
                 return f.recCheck(problems);
             }},
    };
    const std::string original = readBytes(path);
    krtest::ReportCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        unsigned long failures = 0;
        krtest::forEachAllocationFailure(
                [&] {
                    writeBytes(path, original);  // as it was before the last row's changes
                    return std::make_unique<KR_FileBinaryRec>(path.c_str(), KR_FILE_MODE_UPDATE);
                },
                [&](std::unique_ptr<KR_FileBinaryRec>& f) { return row.op(*f, path.c_str()); },
                [&](std::unique_ptr<KR_FileBinaryRec>& f, KR_RET_STATUS status, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    if (f->isOpen()) {
                        EXPECT_EQ(512u, f->recNum());
                        EXPECT_EQ(512u, readAll(*f).size());
                    }
                    EXPECT_EQ(strcmp(row.name, "open") != 0, f->isOpen() != 0);
                });
        EXPECT_GT(failures, 0u);
    }
}
