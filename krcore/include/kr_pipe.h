// kr_pipe.h — named pipes through which modules pass lists of wide texts to one another.
// A producer publishes data under a pipe name (KR_pipeAddData) and may attach a callback to the
// pipe (KR_pipeAddCallback); a consumer reads the data by name (KR_pipeGetData). While
// notification is on, a read first calls the pipe's callback, so that the producer can refresh
// the data before it is copied out. Data is copied in and copied out: callers keep their arrays.
//   KR_pipeAddData(L"clock", now)     ->  KR_RET_TRUE (the pipe is made)
//   KR_pipeGetData(L"clock", out)     ->  KR_RET_TRUE, out holds a copy of now
//   KR_pipeGetData(L"nothing", out)   ->  KR_RET_FALSE, out empty
#ifndef KRCORE_KR_PIPE_H
#define KRCORE_KR_PIPE_H

#include "kr_array_impl.h"
#include "kr_globals.h"
#include "kr_str.h"

// A pipe's callback: called with the pipe's name and the reader's array. It may refresh its own
// pipe through KR_pipeAddData; what it writes into data itself is replaced by the pipe's data
// afterwards. A failure (above KR_RET_TRUE) ends the read with that status. It must not close
// or re-initialise the manager.
typedef KR_RET_STATUS (*KR_PipeCallback)(wchar_t* pipeName, KR_Array<KR_StringW>& data);

// KR_PipeEntry — one pipe: its name (compared exactly, case-sensitive), its callback (null when
// none) and its data. Copies are made through the members' own copies, so one whose memory runs
// out is reported by the member that failed; KR_ElemCopy tells the containers so. Moving never
// allocates and never fails.
class KR_API KR_PipeEntry {
public:
    KR_PipeEntry();
    KR_PipeEntry(const KR_PipeEntry& other);
    KR_PipeEntry(KR_PipeEntry&& other) noexcept;
    ~KR_PipeEntry();
    KR_PipeEntry& operator=(const KR_PipeEntry& other);
    KR_PipeEntry& operator=(KR_PipeEntry&& other) noexcept;

    // The same entry, or equal names, callbacks and data. Compares the arrays through their
    // cursors, which it moves.
    bool operator==(const KR_PipeEntry& other) const;

    KR_StringW name;
    KR_PipeCallback callback;
    KR_Array<KR_StringW> data;
};

// A pipe copy arrived when its name and every text of its data did. The data is copied into an
// array of its own first, which is left empty exactly when its copy failed.
template <>
struct KR_ElemCopy<KR_PipeEntry> {
    static constexpr bool kMayFail = true;

    static bool copy(KR_PipeEntry& dst, const KR_PipeEntry& src) {
        KR_Array<KR_StringW> data(src.data);
        if (data.numElems() != src.data.numElems()) return false;
        if (!KR_ElemCopy<KR_StringW>::copy(dst.name, src.name)) return false;
        dst.callback = src.callback;
        dst.data = static_cast<KR_Array<KR_StringW>&&>(data);
        return true;
    }
};

// The registry's array is provided by the library (kr_instances.cpp).
extern template class KR_API KR_Container<KR_PipeEntry>;
extern template class KR_API KR_OrdContainer<KR_PipeEntry>;
extern template class KR_API KR_I_Iterator<KR_PipeEntry>;
extern template class KR_API KR_IndContainer<KR_PipeEntry>;
extern template class KR_API KR_Array<KR_PipeEntry>;

// --- The pipe manager (report name "src/kr_pipe") ---
// One registry of pipes per process, in creation order, at most one pipe per name; pipes live
// until the manager is re-initialised or closed. A null pipe name is reported (KR_RET_ERR_ARG),
// and so is every operation other than init, close and KR_pipeSetNotify on a closed manager
// (KR_RET_ERR_OBJ). A pipe's name is handed to its callback as the caller gave it. For one thread.

// Opens the manager; on an open manager drops every pipe. KR_RET_TRUE, or KR_RET_ERR_MEM.
KR_API KR_RET_STATUS KR_initPipeManager();
// Drops every pipe and closes the manager: KR_RET_TRUE; KR_RET_FALSE when it was closed.
KR_API KR_RET_STATUS KR_closePipeManager();
// Replaces the data of the pipe name with a copy of data, or makes the pipe (without callback).
// Never calls a callback. KR_RET_ERR_MEM leaves the pipes as they were.
KR_API KR_RET_STATUS KR_pipeAddData(wchar_t* name, KR_Array<KR_StringW>& data);
// out := a copy of the pipe's data: KR_RET_TRUE; KR_RET_FALSE, with out empty, when there is no
// such pipe. While notification is on, the pipe's callback runs first, with name and out; its
// failure is returned at once and out keeps what the callback left in it. KR_RET_ERR_MEM leaves
// out empty.
KR_API KR_RET_STATUS KR_pipeGetData(wchar_t* name, KR_Array<KR_StringW>& out);
// Sets the pipe's callback (null removes it), or makes the pipe with that callback and no data.
KR_API KR_RET_STATUS KR_pipeAddCallback(wchar_t* name, KR_PipeCallback callback);
// Calls the pipe's callback with name and data. KR_RET_FALSE when notification is off or the pipe
// or its callback does not exist; the callback's failure as it is; KR_RET_TRUE otherwise.
KR_API KR_RET_STATUS KR_pipeIssueCallback(wchar_t* name, KR_Array<KR_StringW>& data);
// Switches notification (the callbacks run by reads and KR_pipeIssueCallback); on from load.
KR_API void KR_pipeSetNotify(unsigned char on);

#endif  // KRCORE_KR_PIPE_H
