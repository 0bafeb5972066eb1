// bench_command.cpp — the undo stack: a million commands added, all undone, all redone.
// KR_CmdStack runs beside a vector of owned commands with the same rules (the redo side is
// discarded by the next add) and, where Qt 5 is found, beside QUndoStack. Each side executes
// every command once before (QUndoStack: as) it is added, and deletes it with the stack.
#include <memory>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

#if defined(KR_BENCH_QT)
#include <QUndoStack>
#endif

namespace {

// Adds its amount to a total, and takes it back.
class AddCmd : public KR_Command {
public:
    AddCmd(long& total, long amount) : total_(total), amount_(amount) {}

    KR_RET_STATUS execute(unsigned char) override {
        total_ += amount_;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS undo() override {
        total_ -= amount_;
        return KR_RET_TRUE;
    }

private:
    long& total_;
    long amount_;
};

struct KrStack {
    KR_CmdStack stack;

    void add(long& total, long amount) {
        auto* cmd = new AddCmd(total, amount);
        cmd->execute(0);
        stack.addCmd(cmd);
    }

    void undo() { stack.undo(); }

    void redo() { stack.redo(); }
};

// The same stack on std::vector: the commands below pos are executed.
struct VectorStack {
    std::vector<std::unique_ptr<KR_Command>> cmds;
    size_t pos = 0;

    void add(long& total, long amount) {
        auto cmd = std::make_unique<AddCmd>(total, amount);
        cmd->execute(0);
        cmds.resize(pos);
        cmds.push_back(std::move(cmd));
        ++pos;
    }

    void undo() {
        if (pos > 0) cmds[--pos]->undo();
    }

    void redo() {
        if (pos < cmds.size()) cmds[pos++]->execute(1);
    }
};

#if defined(KR_BENCH_QT)
class QtAddCmd : public QUndoCommand {
public:
    QtAddCmd(long& total, long amount) : total_(total), amount_(amount) {}

    void redo() override { total_ += amount_; }

    void undo() override { total_ -= amount_; }

private:
    long& total_;
    long amount_;
};

// QUndoStack::push executes the command itself. No QApplication is needed for push, undo and
// redo: the stack is a QObject whose signals have no receivers here.
struct QtStack {
    QUndoStack stack;

    void add(long& total, long amount) { stack.push(new QtAddCmd(total, amount)); }

    void undo() { stack.undo(); }

    void redo() { stack.redo(); }
};
#endif

// The whole cycle: make and add every command, undo all, redo all, delete the stack with them.
template <class Stack>
void BM_AddUndoRedo(benchmark::State& state) {
    const unsigned int count = static_cast<unsigned int>(state.range(0));
    for (auto _ : state) {
        long total = 0;
        auto stack = std::make_unique<Stack>();
        for (unsigned int i = 0; i < count; ++i)
            stack->add(total, i & 7);
        for (unsigned int i = 0; i < count; ++i)
            stack->undo();
        if (total != 0) state.SkipWithError("undo left a total");
        for (unsigned int i = 0; i < count; ++i)
            stack->redo();
        benchmark::DoNotOptimize(total);
        stack.reset();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 3 * count);
}

// Undo all and redo all on a stack filled once: the stack's own cost, without making and
// deleting the commands.
template <class Stack>
void BM_UndoRedo(benchmark::State& state) {
    const unsigned int count = static_cast<unsigned int>(state.range(0));
    long total = 0;
    auto stack = std::make_unique<Stack>();
    for (unsigned int i = 0; i < count; ++i)
        stack->add(total, i & 7);
    for (auto _ : state) {
        for (unsigned int i = 0; i < count; ++i)
            stack->undo();
        for (unsigned int i = 0; i < count; ++i)
            stack->redo();
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * count);
}

BENCHMARK_TEMPLATE(BM_AddUndoRedo, KrStack)
        ->Unit(benchmark::kMillisecond)
        ->Arg(100000)
        ->Arg(1000000);
BENCHMARK_TEMPLATE(BM_AddUndoRedo, VectorStack)
        ->Unit(benchmark::kMillisecond)
        ->Arg(100000)
        ->Arg(1000000);
BENCHMARK_TEMPLATE(BM_UndoRedo, KrStack)->Unit(benchmark::kMillisecond)->Arg(100000)->Arg(1000000);
BENCHMARK_TEMPLATE(BM_UndoRedo, VectorStack)
        ->Unit(benchmark::kMillisecond)
        ->Arg(100000)
        ->Arg(1000000);
#if defined(KR_BENCH_QT)
BENCHMARK_TEMPLATE(BM_AddUndoRedo, QtStack)
        ->Unit(benchmark::kMillisecond)
        ->Arg(100000)
        ->Arg(1000000);
BENCHMARK_TEMPLATE(BM_UndoRedo, QtStack)->Unit(benchmark::kMillisecond)->Arg(100000)->Arg(1000000);
#endif

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
