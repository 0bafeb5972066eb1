// test_command.cpp — commands, command groups and the undo stack, beside a model of the stack.
#include <limits.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

const char kArg[] = "Error on function input arguments";

// What the commands of a test did: execute ("e<id>/<flag> ") and undo ("u<id> ") in order, and
// how often each was destroyed.
struct Journal {
    std::string log;
    std::map<int, int> destroyed;
};

class LogCmd : public KR_Command {
public:
    LogCmd(Journal& journal, int id, KR_RET_STATUS fails = KR_RET_TRUE, bool undoable = true)
        : journal_(journal), id_(id), fails_(fails), undoable_(undoable) {}

    ~LogCmd() override { ++journal_.destroyed[id_]; }

    KR_RET_STATUS execute(unsigned char flag) override {
        journal_.log += "e" + std::to_string(id_) + "/" + std::to_string(flag) + " ";
        return fails_;
    }

    KR_RET_STATUS undo() override {
        journal_.log += "u" + std::to_string(id_) + " ";
        return fails_;
    }

    unsigned char undoIsPossible(unsigned char) override { return undoable_; }

    unsigned char redoIsPossible(unsigned char) override { return undoable_; }

    int id() const { return id_; }

private:
    Journal& journal_;
    int id_;
    KR_RET_STATUS fails_;
    bool undoable_;
};

std::string report(const char* text) {
    return krtest::statusReport("src/kr_command", text);
}

// The stack as a vector of ids and a position, with the clean position (-1: unreachable), the
// undo limit and the ids deleted so far.
struct StackModel {
    std::vector<int> ids;
    size_t pos = 0;
    long clean = 0;
    size_t limit = 0;
    std::map<int, int> deleted;

    bool isClean() const { return clean == static_cast<long>(pos); }

    void trim() {
        for (; limit != 0 && pos > limit; --pos) {
            deleted[ids.front()] = 1;
            ids.erase(ids.begin());
            clean = clean <= 0 ? -1 : clean - 1;
        }
    }

    void add(int id) {
        for (size_t i = pos; i < ids.size(); ++i)
            deleted[ids[i]] = 1;
        ids.resize(pos);
        if (clean > static_cast<long>(pos)) clean = -1;
        ids.push_back(id);
        ++pos;
        trim();
    }

    void clear() {
        clean = isClean() ? 0 : -1;
        for (int id : ids)
            deleted[id] = 1;
        ids.clear();
        pos = 0;
    }
};

void onCleanChanged(unsigned char clean, void* calls) {
    static_cast<std::string*>(calls)->push_back(clean ? 'C' : 'M');
}

// Seeded random adds, undos, redos, clears, clean marks and limits, compared after every step
// with the model: count, position, order, clean state and callbacks, the calls each command
// received, and which commands were deleted (each exactly once by the end).
TEST(CmdStack, MatchesModelOverRandomSequences) {
    for (unsigned int seed = 1; seed <= 24; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        Journal journal;
        std::string expectedLog, calls, expectedCalls;
        StackModel m;
        int nextId = 0;
        {
            KR_CmdStack s;
            ASSERT_KR_OK(s.setCleanChangedCallback(onCleanChanged, &calls));
            unsigned int add = 40 + (seed % 3) * 15;
            for (int step = 0; step < 600; ++step) {
                bool wasClean = m.isClean();
                unsigned int r = rng() % 100;
                if (r < add) {
                    ASSERT_KR_OK(s.addCmd(new LogCmd(journal, nextId)));
                    m.add(nextId++);
                } else if (r < add + 25) {
                    bool can = m.pos > 0;
                    ASSERT_KR_STATUS(can ? KR_RET_TRUE : KR_RET_FALSE, s.undo());
                    if (can) expectedLog += "u" + std::to_string(m.ids[--m.pos]) + " ";
                } else if (r < add + 45) {
                    bool can = m.pos < m.ids.size();
                    ASSERT_KR_STATUS(can ? KR_RET_TRUE : KR_RET_FALSE, s.redo());
                    if (can) expectedLog += "e" + std::to_string(m.ids[m.pos++]) + "/1 ";
                } else if (r < add + 48) {
                    ASSERT_KR_OK(s.clearUndoStack());
                    m.clear();
                } else if (r < add + 54) {
                    ASSERT_KR_OK(s.setClean());
                    m.clean = static_cast<long>(m.pos);
                } else {
                    const unsigned int limits[] = {0, 0, 1, 3, 50, 200};
                    m.limit = limits[rng() % 6];
                    ASSERT_KR_OK(s.setUndoLimit(static_cast<unsigned int>(m.limit)));
                    m.trim();
                }
                if (m.isClean() != wasClean) expectedCalls += m.isClean() ? 'C' : 'M';
                ASSERT_EQ(m.ids.size(), s.getNumCmds()) << "step " << step;
                ASSERT_EQ(static_cast<int>(m.pos) - 1, s.nextUndoCmdIndex());
                ASSERT_EQ(m.pos < m.ids.size() ? static_cast<int>(m.pos) : -1,
                          s.nextRedoCmdIndex());
                ASSERT_EQ(m.isClean(), s.isClean() != 0);
                ASSERT_EQ(expectedCalls, calls);
                ASSERT_EQ(expectedLog, journal.log);
                ASSERT_EQ(m.deleted, journal.destroyed);
                for (unsigned int i = 0; i < m.ids.size(); ++i)
                    ASSERT_EQ(m.ids[i], static_cast<LogCmd*>(s.getStackCmd(i))->id()) << i;
            }
        }
        for (int id = 0; id < nextId; ++id)
            ASSERT_EQ(1, journal.destroyed[id]) << "command " << id;
    }
}

TEST(CmdStack, EdgesOfTheStack) {
    Journal journal;
    KR_CmdStack s;
    unsigned int index = 99;
    EXPECT_KR_STATUS(KR_RET_FALSE, s.getLastExecCmdIndex(index));
    EXPECT_EQ(0u, index);
    EXPECT_FALSE(s.undoIsPossible(0) || s.redoIsPossible(0));
    EXPECT_EQ(nullptr, s.getCurUndoCmd());
    // Behind a command that cannot be undone there is no last executed index.
    ASSERT_KR_OK(s.addCmd(new LogCmd(journal, 1)));
    ASSERT_KR_OK(s.addCmd(new LogCmd(journal, 2, KR_RET_TRUE, false)));
    EXPECT_KR_STATUS(KR_RET_FALSE, s.getLastExecCmdIndex(index));
    EXPECT_EQ(2u, index);
    EXPECT_KR_OK(s.undo());
    EXPECT_KR_STATUS(KR_RET_TRUE, s.getLastExecCmdIndex(index));
    EXPECT_EQ(0u, index);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, s.addCmd(nullptr));
    EXPECT_EQ(nullptr, s.getStackCmd(2));
    EXPECT_EQ(report(kArg) + report(kArg), capture.located());
}

TEST(CommandMulti, RunsInOrderAndStopsAtTheFirstFailure) {
    Journal journal;
    auto* group = new KR_CommandMulti;
    // Null and non-pointer entries are skipped.
    KR_Var subs[] = {KR_Var(static_cast<void*>(new LogCmd(journal, 1))),
                     KR_Var(static_cast<void*>(nullptr)),
                     KR_Var(static_cast<void*>(new LogCmd(journal, 2, KR_RET_ERR_USER))), KR_Var(5),
                     KR_Var(static_cast<void*>(new LogCmd(journal, 3, KR_RET_TRUE, false)))};
    for (KR_Var& sub : subs)
        ASSERT_KR_OK(group->addArg(sub));
    EXPECT_KR_STATUS(KR_RET_ERR_USER, group->execute(0));
    EXPECT_EQ("e1/0 e2/0 ", journal.log);
    EXPECT_FALSE(group->undoIsPossible(0) || group->redoIsPossible(0));
    // In the stack the group's failure passes through and the position stays moved.
    KR_CmdStack s;
    ASSERT_KR_OK(s.addCmd(group));
    journal.log.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_USER, s.undo());
    EXPECT_EQ("u3 u2 ", journal.log);
    EXPECT_EQ(0, s.nextRedoCmdIndex());
    EXPECT_KR_OK(s.clearUndoStack());
    EXPECT_EQ((std::map<int, int>{{1, 1}, {2, 1}, {3, 1}}), journal.destroyed);
}

TEST(Command, ArgumentsAndCopies) {
    Journal journal;
    LogCmd a(journal, 1), b(journal, 2);
    KR_Var x(7), text("abc"), out(KR_VAR_INT, 1), wild;
    krtest::ReportCapture capture;
    // A null variadic argument stops the copy there: the ones before it are set, the rest Wild.
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.setCmd(ULONG_MAX, 3, &x, static_cast<KR_Var*>(nullptr), &x));
    unsigned long cmd = 0;
    EXPECT_KR_OK(a.getCmd(cmd));
    EXPECT_EQ(ULONG_MAX, cmd);
    ASSERT_EQ(3u, a.numArgs());
    EXPECT_KR_OK(a.getArg(0, out));
    EXPECT_EQ(7, out.i());
    EXPECT_KR_OK(a.getArg(2, wild));
    EXPECT_EQ(KR_VAR_WILD, wild.varType());
    // Copies go through the receiving variant: its type lock refuses a text.
    EXPECT_KR_OK(a.setArg(1, text));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.getArg(1, out));
    EXPECT_EQ(7, out.i());
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.getArg(3, out));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.setArg(3, x));
    EXPECT_EQ(report(kArg) + krtest::statusReport("src/kr_var", kArg) + report(kArg) + report(kArg),
              capture.located());
    EXPECT_KR_OK(a.setArg(2, x));  // a Wild variant equals nothing, not even another Wild
    EXPECT_FALSE(b == a);
    static_cast<KR_Command&>(b) = a;
    EXPECT_TRUE(b == a);
    EXPECT_KR_OK(b.setArg(1, x));
    EXPECT_FALSE(b == a);
    EXPECT_KR_OK(a.delArgs());
    EXPECT_EQ(0u, a.numArgs());
    // Successful copies leave the host's last status code alone.
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_getStatusCode());
}

// Assignment shares the store: both stacks walk the same commands with positions of their own.
// Destroying one deletes every command once; the other is then disabled and destroys nothing.
TEST(CmdStack, AssignmentSharesTheStore) {
    Journal journal;
    auto a = std::make_unique<KR_CmdStack>();
    KR_CmdStack b;
    ASSERT_KR_OK(b.addCmd(new LogCmd(journal, 9)));
    for (int id = 1; id <= 3; ++id)
        ASSERT_KR_OK(a->addCmd(new LogCmd(journal, id)));
    b = *a;
    EXPECT_EQ(1, journal.destroyed[9]);  // b's own command went with its store
    EXPECT_TRUE(b == *a);
    EXPECT_KR_OK(a->undo());
    EXPECT_FALSE(b == *a);
    EXPECT_KR_OK(a->undo());
    EXPECT_EQ(2, b.nextUndoCmdIndex());
    ASSERT_KR_OK(a->addCmd(new LogCmd(journal, 4)));
    // b's position now lies past the two commands left: a null entry, never a deleted command.
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, b.undo());
    EXPECT_EQ(report("Bad usage"), capture.located());
    a.reset();
    EXPECT_EQ((std::map<int, int>{{1, 1}, {2, 1}, {3, 1}, {4, 1}, {9, 1}}), journal.destroyed);
    capture.clear();
    EXPECT_FALSE(b.objIsEnabled());
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, b.redo());
    EXPECT_EQ(0u, b.getNumCmds());
    EXPECT_EQ(report("Korvane object not initialized") + report("Korvane object not initialized"),
              capture.located());
}

TEST(CmdStack, FailedAllocationsKeepTheCallersCommand) {
    KR_REQUIRE_FAULT_INJECTION();
    Journal journal;
    krtest::ReportCapture capture;
    std::unique_ptr<KR_CmdStack> s;
    krtest::forEachAllocationFailure(
            [&] {
                s = std::make_unique<KR_CmdStack>();
                return s->objIsEnabled() ? KR_RET_TRUE : KR_RET_ERR_MEM;
            },
            [&](KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_NE(std::string::npos, capture.text().find("Memory error"));
                LogCmd kept(journal, 0);
                EXPECT_KR_STATUS(KR_RET_ERR_POBJ, s->addCmd(&kept));
                capture.clear();
            });

    // The store is full after 128 commands: the next push must grow it.
    struct State {
        std::unique_ptr<KR_CmdStack> stack = std::make_unique<KR_CmdStack>();
        std::unique_ptr<LogCmd> extra;
    };

    krtest::forEachAllocationFailure(
            [&] {
                State state;
                for (int id = 1; id <= 128; ++id)
                    state.stack->addCmd(new LogCmd(journal, id));
                state.extra = std::make_unique<LogCmd>(journal, 1000);
                journal.destroyed.erase(1000);  // the previous round's extra is gone
                return state;
            },
            [](State& state) {
                KR_RET_STATUS st = state.stack->addCmd(state.extra.get());
                if (!krtest::failed(st)) state.extra.release();
                return st;
            },
            [&](State& state, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_EQ(128u, state.stack->getNumCmds());
                EXPECT_EQ(127, state.stack->nextUndoCmdIndex());
                EXPECT_EQ(0, journal.destroyed[1000]);
            });
}

}  // namespace
