// kr_xmlentry.h — the tag reader's entry read with its results handed out as raw blocks.
// For the library's own readers of many entries (the settings files): they keep the blocks that
// the reader allocated instead of copying them out of string objects. Internal to the library.
#ifndef KRCORE_KR_XMLENTRY_H
#define KRCORE_KR_XMLENTRY_H

#include "kr_file.h"
#include "kr_reporter.h"

namespace krInternal {

// Reads the next entry whatever its tag, as KR_xmlReadTagEntryW(content, tag, file) does, with
// the same answers and reports, but leaves the user error alone. tag := the opening tag and
// content := the wide content, each a new block of the C allocator that the caller frees
// (content is null when it is empty); both are null on any answer other than KR_RET_TRUE.
KR_RET_STATUS xmlReadEntryW(KR_FileAscii& file, char*& tag, wchar_t*& content);

}  // namespace krInternal

#endif  // KRCORE_KR_XMLENTRY_H
