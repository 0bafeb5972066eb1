// kr_command.cpp — undoable commands and the undo stack.
#include "kr_command.h"

#include <limits.h>
#include <stdarg.h>

#include "kr_alloc.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_command"

namespace {

// The clean position of a stack that has none it can reach.
constexpr unsigned int kNoClean = UINT_MAX;

// The undo store's construction arguments: 128 slots at first, in blocks of 128, growing by 128.
constexpr unsigned int kStoreSlots = 128;

// Runs op, an assignment of a variant or a variant array, and answers the status that it
// reported: these assignments answer with the object, and tell a refused or failed copy only
// through their report, which sets the last status code. The host's last status code is left as
// it was when op reports nothing.
template <class Op>
KR_RET_STATUS reportedBy(Op op) {
    KR_RET_STATUS saved = KR_statusCode;
    KR_statusCode = KR_RET_TRUE;
    op();
    KR_RET_STATUS st = KR_statusCode;
    if (KRI_FAILED(st)) return st;
    KR_statusCode = saved;
    return KR_RET_TRUE;
}

KR_RET_STATUS assignVar(KR_Var& to, const KR_Var& from) {
    return reportedBy([&] { to = from; });
}

// A command's status handed back by the stack and the group: anything beyond a plain answer.
KR_RET_STATUS passUp(KR_RET_STATUS st) {
    return st > KR_RET_TRUE ? st : KR_RET_TRUE;
}

}  // namespace

// --- KR_Command ---

KR_Command::KR_Command() {
    krInternal::clearUserError();
    initDataMembers();
}

KR_Command::KR_Command(const KR_Command& other) : KR_KorvaneClass(other) {
    krInternal::clearUserError();
    initDataMembers();
    KRI_FAIL(other.initialised_ ? KR_RET_ERR_NSUP : KR_RET_ERR_POBJ);
}

KR_Command::~KR_Command() {
    cleanupDataMembers();
}

KR_Command& KR_Command::operator=(const KR_Command& other) {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (KRI_FAILED(reportedBy([&] { args_ = other.args_; }))) return *this;
    if (KRI_FAILED(reportedBy([&] { undoArgs_ = other.undoArgs_; }))) return *this;
    cmd_ = other.cmd_;
    return *this;
}

unsigned char KR_Command::operator==(KR_Command& other) {
    krInternal::clearUserError();
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (&other == this) return 1;
    return cmd_ == other.cmd_ && args_ == other.args_ && undoArgs_ == other.undoArgs_;
}

unsigned char KR_Command::undoIsPossible(unsigned char) {
    krInternal::clearUserError();
    return 1;
}

unsigned char KR_Command::redoIsPossible(unsigned char) {
    krInternal::clearUserError();
    return 1;
}

KR_RET_STATUS KR_Command::getCmd(unsigned long& cmd) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    cmd = cmd_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Command::setCmd(unsigned long cmd) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    cmd_ = cmd;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Command::setCmd(unsigned long cmd, unsigned int n, ...) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    args_.delAll();
    if (n > 0) {
        KR_RET_STATUS st = args_.insElems(KR_INS_AFTER, 0, n);
        if (KRI_FAILED(st)) return st;
    }
    cmd_ = cmd;
    va_list values;
    va_start(values, n);
    KR_RET_STATUS st = KR_RET_TRUE;
    for (unsigned int i = 0; i < n && !KRI_FAILED(st); ++i) {
        KR_Var* value = va_arg(values, KR_Var*);
        st = value == nullptr ? KRI_FAIL(KR_RET_ERR_ARG) : assignVar(args_[i], *value);
    }
    va_end(values);
    return st;
}

KR_RET_STATUS KR_Command::addArg(KR_Var& value) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    // The copy is made first, so that a copy that fails leaves the list alone; the list then
    // takes it over without copying again.
    KR_Var copy;
    KR_RET_STATUS st = assignVar(copy, value);
    if (KRI_FAILED(st)) return st;
    return args_.appendElem(static_cast<KR_Var&&>(copy));
}

KR_RET_STATUS KR_Command::delArgs() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    args_.delAll();
    return KR_RET_TRUE;
}

unsigned int KR_Command::numArgs() {
    krInternal::clearUserError();
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return args_.numElems();
}

KR_RET_STATUS KR_Command::getArg(unsigned int i, KR_Var& value) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (i >= args_.numElems()) return KRI_FAIL(KR_RET_ERR_ARG);
    return assignVar(value, args_[i]);
}

KR_RET_STATUS KR_Command::setArg(unsigned int i, KR_Var& value) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (i >= args_.numElems()) return KRI_FAIL(KR_RET_ERR_ARG);
    return assignVar(args_[i], value);
}

KR_RET_STATUS KR_Command::initDataMembers() {
    initialised_ = 1;
    cmd_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Command::cleanupDataMembers() {
    args_.delAll();
    undoArgs_.delAll();
    initialised_ = 0;
    return KR_RET_TRUE;
}

// --- KR_CommandMulti ---

KR_CommandMulti::KR_CommandMulti() {
    krInternal::clearUserError();
    initDataMembers();
}

KR_CommandMulti::KR_CommandMulti(const KR_CommandMulti& other) : KR_Command() {
    krInternal::clearUserError();
    initDataMembers();
    KRI_FAIL(other.initialised_ ? KR_RET_ERR_NSUP : KR_RET_ERR_POBJ);
}

KR_CommandMulti::~KR_CommandMulti() {
    cleanupDataMembers();
}

KR_CommandMulti& KR_CommandMulti::operator=(const KR_CommandMulti& other) {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!initialised_ || !other.initialised_ || !KR_Command::initialised_ ||
        !other.KR_Command::initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (KRI_FAILED(reportedBy([&] { undoArgs_ = other.undoArgs_; }))) return *this;
    cmd_ = other.cmd_;
    return *this;
}

unsigned char KR_CommandMulti::operator==(KR_CommandMulti& other) {
    return KR_Command::operator==(other);
}

KR_RET_STATUS KR_CommandMulti::execute(unsigned char flag) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    for (unsigned int i = 0; i < args_.numElems(); ++i) {
        KR_Command* cmd = subCommand(i);
        if (cmd == nullptr) continue;
        KR_RET_STATUS st = cmd->execute(flag);
        if (st > KR_RET_TRUE) return st;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_CommandMulti::undo() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    for (unsigned int i = args_.numElems(); i > 0; --i) {
        KR_Command* cmd = subCommand(i - 1);
        if (cmd == nullptr) continue;
        KR_RET_STATUS st = cmd->undo();
        if (st > KR_RET_TRUE) return st;
    }
    return KR_RET_TRUE;
}

unsigned char KR_CommandMulti::undoIsPossible(unsigned char flag) {
    krInternal::clearUserError();
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    for (unsigned int i = args_.numElems(); i > 0; --i) {
        KR_Command* cmd = subCommand(i - 1);
        if (cmd != nullptr && !cmd->undoIsPossible(flag)) return 0;
    }
    return 1;
}

unsigned char KR_CommandMulti::redoIsPossible(unsigned char flag) {
    krInternal::clearUserError();
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    for (unsigned int i = args_.numElems(); i > 0; --i) {
        KR_Command* cmd = subCommand(i - 1);
        if (cmd != nullptr && !cmd->redoIsPossible(flag)) return 0;
    }
    return 1;
}

KR_RET_STATUS KR_CommandMulti::initDataMembers() {
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_CommandMulti::cleanupDataMembers() {
    for (unsigned int i = 0; i < args_.numElems(); ++i)
        delete subCommand(i);
    args_.delAll();
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_Command* KR_CommandMulti::subCommand(unsigned int i) {
    KR_Var& arg = args_[i];
    return arg.varType() == KR_VAR_PTR ? static_cast<KR_Command*>(arg.ptr()) : nullptr;
}

// --- KR_CmdStack ---

// What the stacks that share one store know together: how many refer to it, and whether it is
// still there (one of them may have deleted it).
struct KR_CmdStack::Share {
    unsigned int refs;
    unsigned char storeAlive;
};

KR_CmdStack::KR_CmdStack() {
    krInternal::clearUserError();
    initDataMembers();
    store_ = krInternal::newObject<KR_Stack<KR_Command*>>(kStoreSlots, kStoreSlots, kStoreSlots,
                                                          static_cast<unsigned char>(0));
    if (store_ == nullptr) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return;
    }
    if (!store_->objIsEnabled()) {
        // The store has reported its failed storage.
        delete store_;
        store_ = nullptr;
        return;
    }
    initialised_ = 1;
}

KR_CmdStack::KR_CmdStack(const KR_CmdStack& other) : KR_KorvaneClass(other) {
    krInternal::clearUserError();
    initDataMembers();
    KRI_FAIL(other.usable() ? KR_RET_ERR_NSUP : KR_RET_ERR_POBJ);
}

KR_CmdStack::~KR_CmdStack() {
    cleanupDataMembers();
}

KR_CmdStack& KR_CmdStack::operator=(const KR_CmdStack& other) {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!other.usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    bool wasClean = usable() && position_ == cleanPos_;
    if (store_ != other.store_) {
        Share* share = other.share_;
        if (share == nullptr) {
            share = static_cast<Share*>(krInternal::allocZeroed(1, sizeof(Share)));
            if (share == nullptr) {
                KRI_FAIL(KR_RET_ERR_MEM);
                return *this;
            }
            share->refs = 1;
            share->storeAlive = 1;
            other.share_ = share;
        }
        if (share_ != nullptr && share_->storeAlive && share_->refs > 1) {
            // Another stack still refers to our store: it keeps it.
            --share_->refs;
            share_ = nullptr;
            store_ = nullptr;
        }
        cleanupDataMembers();
        ++share->refs;
        share_ = share;
        store_ = other.store_;
        initialised_ = 1;
    }
    stored_ = other.stored_;
    position_ = other.position_;
    base_ = other.base_;
    cleanPos_ = other.cleanPos_;
    limit_ = other.limit_;
    notifyClean(wasClean);
    return *this;
}

unsigned char KR_CmdStack::operator==(const KR_CmdStack& other) {
    krInternal::clearUserError();
    if (!usable() || !other.usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return &other == this || (store_ == other.store_ && position_ == other.position_);
}

unsigned char KR_CmdStack::objIsEnabled() const {
    return usable();
}

KR_RET_STATUS KR_CmdStack::addCmd(KR_Command* cmd) {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (cmd == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    bool wasClean = position_ == cleanPos_;
    unsigned int n = count();
    if (position_ > n) position_ = n;  // stale after another stack changed the store
    if (n > position_) {
        // Popped slots are free storage, so the push below cannot fail once one is popped.
        runSpan_ = 0;
        for (; n > position_; --n) {
            KR_Command* discarded = store_->pop();
            delete discarded;
        }
        stored_ = base_ + n;
        if (cleanPos_ != kNoClean && cleanPos_ > position_) cleanPos_ = kNoClean;
    }
    KR_RET_STATUS st = store_->push(cmd);
    if (KRI_FAILED(st)) return st;
    ++stored_;
    ++position_;
    if (limit_ != 0) applyLimit();
    notifyClean(wasClean);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_CmdStack::undo() {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (position_ == 0) return KR_RET_FALSE;
    bool wasClean = position_ == cleanPos_;
    --position_;
    KR_Command* cmd = at(position_);
    KR_RET_STATUS st = cmd != nullptr ? cmd->undo() : KRI_FAIL(KR_RET_ERR_CALL);
    notifyClean(wasClean);
    return passUp(st);
}

KR_RET_STATUS KR_CmdStack::redo() {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (position_ >= count()) return KR_RET_FALSE;
    KR_Command* cmd = at(position_);
    if (cmd == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    bool wasClean = position_ == cleanPos_;
    ++position_;
    KR_RET_STATUS st = cmd->execute(1);
    notifyClean(wasClean);
    return passUp(st);
}

KR_RET_STATUS KR_CmdStack::clearUndoStack() {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    bool wasClean = position_ == cleanPos_;
    runSpan_ = 0;
    for (unsigned int n = store_->getNum(); n > 0; --n) {
        KR_Command* cmd = store_->pop();
        delete cmd;
    }
    stored_ = 0;
    base_ = 0;
    position_ = 0;
    cleanPos_ = wasClean ? 0 : kNoClean;
    return KR_RET_TRUE;
}

unsigned char KR_CmdStack::undoIsPossible(unsigned char flag) {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (position_ == 0) return 0;
    KR_Command* cmd = at(position_ - 1);
    if (cmd == nullptr) {
        KRI_FAIL(KR_RET_ERR_CALL);
        return 0;
    }
    return cmd->undoIsPossible(flag);
}

unsigned char KR_CmdStack::redoIsPossible(unsigned char flag) {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (position_ >= count()) return 0;
    KR_Command* cmd = at(position_);
    if (cmd == nullptr) {
        KRI_FAIL(KR_RET_ERR_CALL);
        return 0;
    }
    return cmd->redoIsPossible(flag);
}

unsigned int KR_CmdStack::getNumCmds() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return count();
}

KR_Command* KR_CmdStack::getStackCmd(unsigned int i) {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return nullptr;
    }
    if (i >= count()) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    return at(i);
}

KR_Command* KR_CmdStack::getCurUndoCmd() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return nullptr;
    }
    return position_ == 0 ? nullptr : at(position_ - 1);
}

KR_Command* KR_CmdStack::getCurRedoCmd() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return nullptr;
    }
    return position_ >= count() ? nullptr : at(position_);
}

int KR_CmdStack::nextUndoCmdIndex() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return -1;
    }
    return position_ == 0 ? -1 : static_cast<int>(position_ - 1);
}

int KR_CmdStack::nextRedoCmdIndex() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return -1;
    }
    return position_ >= count() ? -1 : static_cast<int>(position_);
}

KR_RET_STATUS KR_CmdStack::getLastExecCmdIndex(unsigned int& index) {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    index = count();
    if (position_ == 0) return KR_RET_FALSE;
    KR_Command* cmd = at(position_ - 1);
    if (cmd == nullptr) {
        KRI_FAIL(KR_RET_ERR_CALL);
        return KR_RET_FALSE;
    }
    if (!cmd->undoIsPossible(0)) return KR_RET_FALSE;
    index = position_ - 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_CmdStack::setClean() {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    bool wasClean = position_ == cleanPos_;
    cleanPos_ = position_;
    notifyClean(wasClean);
    return KR_RET_TRUE;
}

unsigned char KR_CmdStack::isClean() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return position_ == cleanPos_;
}

KR_RET_STATUS KR_CmdStack::setCleanChangedCallback(void (*callback)(unsigned char, void*),
                                                   void* context) {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    cleanChanged_ = callback;
    cleanContext_ = context;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_CmdStack::setUndoLimit(unsigned int limit) {
    krInternal::clearUserError();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    limit_ = limit;
    if (limit_ != 0) applyLimit();
    return KR_RET_TRUE;
}

unsigned int KR_CmdStack::undoLimit() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return limit_;
}

KR_RET_STATUS KR_CmdStack::initDataMembers() {
    initialised_ = 0;
    store_ = nullptr;
    position_ = 0;
    base_ = 0;
    cleanPos_ = 0;
    limit_ = 0;
    cleanChanged_ = nullptr;
    cleanContext_ = nullptr;
    share_ = nullptr;
    stored_ = 0;
    run_ = nullptr;
    runFirst_ = 0;
    runSpan_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_CmdStack::cleanupDataMembers() {
    if (store_ != nullptr && (share_ == nullptr || share_->storeAlive)) {
        for (unsigned int n = store_->getNum(); n > 0; --n) {
            KR_Command* cmd = store_->pop();
            delete cmd;
        }
        delete store_;
        if (share_ != nullptr) share_->storeAlive = 0;
    }
    store_ = nullptr;
    if (share_ != nullptr && --share_->refs == 0) krInternal::freeBlock(share_);
    share_ = nullptr;
    initialised_ = 0;
    position_ = 0;
    base_ = 0;
    cleanPos_ = 0;
    stored_ = 0;
    run_ = nullptr;
    runSpan_ = 0;
    return KR_RET_TRUE;
}

bool KR_CmdStack::usable() const {
    return initialised_ && (share_ == nullptr || share_->storeAlive);
}

inline unsigned int KR_CmdStack::count() {
    unsigned int stored = share_ == nullptr ? stored_ : store_->getNum();
    return stored > base_ ? stored - base_ : 0;
}

inline KR_Command* KR_CmdStack::at(unsigned int i) {
    unsigned int slot = base_ + i;
    if (share_ == nullptr && slot - runFirst_ < runSpan_) return run_[slot - runFirst_];
    return fetch(slot);
}

KR_Command* KR_CmdStack::fetch(unsigned int i) {
    // Past the end the store answers with its null element, which reads as a null command.
    KR_Command* cmd = store_->peek(i);
    if (share_ != nullptr || i >= stored_) return cmd;
    // The slots of one storage block of the store (kStoreSlots of them from a multiple of
    // kStoreSlots) lie one after another; the run is taken only when its two ends confirm it.
    unsigned int first = i - i % kStoreSlots;
    unsigned int end = stored_ - first < kStoreSlots ? stored_ : first + kStoreSlots;
    KR_Command** head = &store_->peek(first);
    if (&store_->peek(end - 1) != head + (end - 1 - first)) return cmd;
    run_ = head;
    runFirst_ = first;
    runSpan_ = end - first;
    return cmd;
}

void KR_CmdStack::applyLimit() {
    unsigned int n = count();
    if (position_ > n) position_ = n;
    while (position_ > limit_) {
        // The slot is emptied before the command goes, so no stack can reach it afterwards.
        KR_Command*& slot = store_->peek(base_);
        KR_Command* oldest = slot;
        slot = nullptr;
        ++base_;
        --position_;
        --n;
        if (cleanPos_ != kNoClean) cleanPos_ = cleanPos_ == 0 ? kNoClean : cleanPos_ - 1;
        delete oldest;
    }
    // The emptied slots are squeezed out once they outnumber the commands: each command is moved
    // at most once for every slot emptied before it, which keeps the limit O(1) per command.
    if (base_ == 0 || base_ < n) return;
    runSpan_ = 0;
    for (unsigned int i = 0; i < n; ++i)
        store_->peek(i) = store_->peek(base_ + i);
    for (unsigned int k = 0; k < base_; ++k)
        store_->pop();
    stored_ = n;
    base_ = 0;
}

inline void KR_CmdStack::notifyClean(bool wasClean) {
    if (cleanChanged_ == nullptr) return;
    bool clean = usable() && position_ == cleanPos_;
    if (clean != wasClean) cleanChanged_(clean, cleanContext_);
}
