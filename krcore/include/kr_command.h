// kr_command.h — undoable commands and the undo stack that owns them.
// A host wraps each undoable operation in a KR_Command (a number and a list of variant
// arguments, with execute and undo), groups several into one step with KR_CommandMulti, and
// hands every executed command to a KR_CmdStack, which moves back and forth over them for undo
// and redo and deletes them when they leave it. Everything reports under "src/kr_command".
//
//   KR_CmdStack stack;
//   cmd->execute(0);            // the caller executes ...
//   stack.addCmd(cmd);          // ... and hands over: the stack owns cmd from now on
//   stack.undo();               // cmd->undo()
//   stack.redo();               // cmd->execute(1)
#ifndef KRCORE_KR_COMMAND_H
#define KRCORE_KR_COMMAND_H

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_globals.h"
#include "kr_reporter.h"
#include "kr_stack_impl.h"
#include "kr_var.h"

// KR_Command — the abstract base of an undoable operation: a command number (0 at
// construction) and a list of variant arguments. Arguments are copies: copying a value in or out
// goes through the receiving variant's assignment, so its type lock and length limit hold, and a
// refused or failed copy is reported by the variant and its status returned. A command that is
// not enabled answers KR_RET_ERR_POBJ (reported) from every operation.
//
// The second variant array (undoArgs_) is a derived command's own store for what it needs to
// undo itself, such as the values an execution replaced; the base only copies it (operator=) and
// compares it (operator==).
class KR_API KR_Command : public KR_KorvaneClass {
public:
    KR_Command();
    ~KR_Command() override;
    // Copies the number and both arrays; a command that is not enabled on either side is
    // reported (KR_RET_ERR_POBJ) and nothing is copied. The arrays are copied one after the
    // other, each whole or not at all: a failure is reported (KR_RET_ERR_MEM) and stops the copy
    // there, and the number is copied last, only when both arrays arrived.
    KR_Command& operator=(const KR_Command& other);
    // True for the same object, or for equal numbers and pairwise equal arguments and undo
    // values (the variants' equality). False, reported, when either command is not enabled.
    unsigned char operator==(KR_Command& other);

    // Runs the operation. The undo stack passes flag 1 when it redoes the command; the meaning of
    // other values is the caller's (0 is the usual first execution). A status above KR_RET_TRUE
    // is a failure that the stack hands back unchanged.
    virtual KR_RET_STATUS execute(unsigned char flag) = 0;
    // Takes back what execute did.
    virtual KR_RET_STATUS undo() = 0;
    // Whether the command can be undone or redone now; true in the base. The undo stack asks
    // with flag 0; other values are the caller's.
    virtual unsigned char undoIsPossible(unsigned char flag);
    virtual unsigned char redoIsPossible(unsigned char flag);

    unsigned char objIsEnabled() const { return initialised_; }

    KR_RET_STATUS getCmd(unsigned long& cmd);
    KR_RET_STATUS setCmd(unsigned long cmd);
    // Replaces the arguments by copies of n further arguments, each a KR_Var*:
    //   setCmd(7, 2, &a, &b)  ->  number 7, arguments a, b
    // A failure to make the n slots is returned (the list is then empty). A null pointer is
    // reported (KR_RET_ERR_ARG) and returned: the arguments before it are set, the rest Wild.
    KR_RET_STATUS setCmd(unsigned long cmd, unsigned int n, ...);
    KR_RET_STATUS addArg(KR_Var& value);
    KR_RET_STATUS delArgs();
    unsigned int numArgs();
    // An index not below numArgs() is reported (KR_RET_ERR_ARG).
    KR_RET_STATUS getArg(unsigned int i, KR_Var& value);
    KR_RET_STATUS setArg(unsigned int i, KR_Var& value);

protected:
    // Commands are not copied: reports KR_RET_ERR_NSUP (KR_RET_ERR_POBJ for a source that is
    // not enabled) and leaves a fresh command with number 0 and no arguments.
    KR_Command(const KR_Command& other);

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;
    unsigned long cmd_;
    KR_Array<KR_Var> args_;
    KR_Array<KR_Var> undoArgs_;
};

// KR_CommandMulti — several commands run as one step. Each sub-command is an argument holding
// the KR_Command* as a pointer variant (addArg(KR_Var((void*)cmd))); a null pointer, or an
// argument of another type, is skipped. The group owns its sub-commands and deletes each when it
// is destroyed, so a command may be in one group once. The argument operations of the base do
// not delete: delArgs, setArg and setCmd with arguments hand the sub-commands they replace back
// to the caller. Assignment copies the number and the undo values but not the sub-commands,
// which the target keeps: two groups never own one command.
class KR_API KR_CommandMulti : public KR_Command {
public:
    KR_CommandMulti();
    ~KR_CommandMulti() override;
    KR_CommandMulti& operator=(const KR_CommandMulti& other);
    unsigned char operator==(KR_CommandMulti& other);

    // Executes the sub-commands in order and stops at the first status above KR_RET_TRUE,
    // which it returns: the sub-commands before it stay executed.
    KR_RET_STATUS execute(unsigned char flag) override;
    // Undoes the sub-commands from the last to the first, stopping the same way.
    KR_RET_STATUS undo() override;
    // False as soon as one sub-command answers false (asked from the last to the first).
    unsigned char undoIsPossible(unsigned char flag) override;
    unsigned char redoIsPossible(unsigned char flag) override;

    unsigned char objIsEnabled() const { return initialised_; }

private:
    // Groups are not copied; reports as KR_Command's copy constructor does.
    KR_CommandMulti(const KR_CommandMulti& other);

    KR_RET_STATUS initDataMembers();
    // Deletes every sub-command and empties the list.
    KR_RET_STATUS cleanupDataMembers();

    // Sub-command i, or null for a null or non-pointer argument.
    KR_Command* subCommand(unsigned int i);

    // The group's own flag; KR_Command::initialised_ is the base's.
    unsigned char initialised_;
};

// KR_CmdStack — the undo stack. It records executed commands bottom-up (index 0 is the oldest)
// and a position P: the commands below P are executed and can be undone, those from P upward
// have been undone and can be redone. The stack owns every command handed to it and deletes each
// one that leaves it (the redo side discarded by addCmd, clearUndoStack, the undo limit, the
// destructor). The store grows without limit unless an undo limit is set.
//
// Sharing. Assignment makes the target refer to the source's store, with the source's position,
// clean position and undo limit: from then on both objects address the same commands with
// positions of their own. The target's own commands and store are deleted first, unless another
// stack still shares them and keeps them. Only one of the stacks that share a store may be
// destroyed: its destructor deletes the commands and the store, and the others are left without
// them. They do no cleanup of their own when they are destroyed afterwards, and every operation
// on them reports and answers KR_RET_ERR_POBJ. A position goes stale when another stack changes
// the shared store: an index past the stored commands reads as a null entry (KR_RET_ERR_CALL),
// never as a deleted command.
//
// Clean state (off until a host uses it). A host marks the position where its document was
// saved with setClean(); isClean() tells whether the stack stands there. A new stack is clean at
// position 0. The callback set with setCleanChangedCallback is called with the new answer each
// time an operation changes isClean(), after the operation is complete (it may ask the stack,
// but should not change it):
//  - undo and redo move the position and may reach or leave the clean position;
//  - addCmd leaves it; when the clean position lies on the redo side that addCmd discards, it
//    becomes unreachable: isClean() stays false until the next setClean();
//  - clearUndoStack keeps the answer: a clean stack is clean again at position 0, an unclean
//    one has no reachable clean position left;
//  - the undo limit deleting the oldest command moves the clean position down with the
//    commands; a clean position below the deleted command becomes unreachable.
//
// Undo limit (off until set). setUndoLimit(n) keeps at most n commands on the undo side: each
// addCmd past the limit deletes the oldest commands; lowering the limit deletes them at once.
// The redo side is never dropped by the limit. 0 means unlimited.
class KR_API KR_CmdStack : public KR_KorvaneClass {
public:
    // Creates the store; a failed allocation is reported (KR_RET_ERR_MEM) and leaves the stack
    // disabled.
    KR_CmdStack();
    ~KR_CmdStack() override;
    // Shares other's store; see Sharing above. A disabled source is reported (KR_RET_ERR_POBJ)
    // and changes nothing, as does a failed allocation of the share record (KR_RET_ERR_MEM).
    // The target keeps its own clean callback.
    KR_CmdStack& operator=(const KR_CmdStack& other);
    // True for the same object, or the same store and equal positions.
    unsigned char operator==(const KR_CmdStack& other);

    // Whether the stack has its store (the store of a sharing stack may be gone).
    unsigned char objIsEnabled() const;

    // Takes an executed command: discards the redo side (deleting its commands, newest first)
    // and pushes cmd, which must not be in the stack already. Null: KR_RET_ERR_ARG. A push needs
    // new storage only when there is no redo side, so a failed push is returned with the
    // position and count as they were; the command then stays the caller's, who must delete it.
    KR_RET_STATUS addCmd(KR_Command* cmd);
    // KR_RET_FALSE at position 0. Otherwise the position moves down and that command is undone;
    // its failure status is returned (the position stays moved), else KR_RET_TRUE.
    KR_RET_STATUS undo();
    // KR_RET_FALSE with nothing to redo. Otherwise the position moves up and that command is
    // executed with flag 1; its failure status is returned (the position stays moved).
    KR_RET_STATUS redo();
    // Deletes every command, undone ones included; the position becomes 0.
    KR_RET_STATUS clearUndoStack();
    // The answer of the command that undo or redo would call; false when there is none.
    unsigned char undoIsPossible(unsigned char flag);
    unsigned char redoIsPossible(unsigned char flag);
    unsigned int getNumCmds();
    // The command at index i, still owned by the stack; an index past the end is reported
    // (KR_RET_ERR_ARG) and gives null.
    KR_Command* getStackCmd(unsigned int i);
    // The commands that undo and redo would call next, or null.
    KR_Command* getCurUndoCmd();
    KR_Command* getCurRedoCmd();
    // Their indexes, or -1.
    int nextUndoCmdIndex();
    int nextRedoCmdIndex();
    // Sets index to the count, then to P - 1 when the command there can be undone (asked with
    // flag 0): KR_RET_TRUE; otherwise KR_RET_FALSE with index left at the count.
    KR_RET_STATUS getLastExecCmdIndex(unsigned int& index);

    // Marks the current position as clean.
    KR_RET_STATUS setClean();
    unsigned char isClean();
    // Null callback: no calls. context is handed to every call.
    KR_RET_STATUS setCleanChangedCallback(void (*callback)(unsigned char clean, void* context),
                                          void* context);
    KR_RET_STATUS setUndoLimit(unsigned int limit);
    unsigned int undoLimit();

private:
    // Stacks are not copied: reports KR_RET_ERR_NSUP (KR_RET_ERR_POBJ for a disabled source) and
    // leaves a disabled stack without a store.
    KR_CmdStack(const KR_CmdStack& other);

    struct Share;

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    // Initialised, and the store is still there.
    bool usable() const;
    // Stored commands above the slots that the limit emptied.
    unsigned int count();
    // The command at index i (null past the end).
    KR_Command* at(unsigned int i);
    // The command in store slot i, through the store; remembers the run of slots around it.
    KR_Command* fetch(unsigned int i);
    // Deletes the oldest undo-side commands beyond the limit.
    void applyLimit();
    // Calls the clean callback when isClean() is no longer wasClean.
    void notifyClean(bool wasClean);

    unsigned char initialised_;
    KR_Stack<KR_Command*>* store_;  // made with (128, 128, 128, 0); null exactly when disabled
    unsigned int position_;         // P, at most count()
    // Store slots at the bottom that the limit emptied (null entries, not counted); they are
    // squeezed out once they outnumber the commands above them.
    unsigned int base_;
    unsigned int cleanPos_;  // kNoClean when no position is clean
    unsigned int limit_;     // 0: unlimited
    void (*cleanChanged_)(unsigned char clean, void* context);
    void* cleanContext_;
    // Shared with the stacks that share the store; null until the store is first shared.
    mutable Share* share_;
    // The store's count, exact while share_ is null (this stack alone changes the store then).
    unsigned int stored_;
    // While share_ is null: store slots runFirst_ to runFirst_ + runSpan_ - 1, which lie one
    // after another from run_. The store never moves nor frees a slot while it lives, and the
    // run is dropped whenever commands leave the store, so undo and redo read their command
    // without a call into the store.
    KR_Command** run_;
    unsigned int runFirst_;
    unsigned int runSpan_;
};

#endif  // KRCORE_KR_COMMAND_H
