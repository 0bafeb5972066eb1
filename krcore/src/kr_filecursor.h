// kr_filecursor.h — inline access to a text file's buffer, for the library's scanners and writers.
// The tag reader takes the position before every character and reads characters one at a time;
// through the exported members each of those is a call into the library (and a clear of the user
// error). While the bytes wanted are in the buffer, these read them in place with the same result;
// otherwise, and for every failure, the caller goes through the public members, which fill the
// buffer and report as usual. Writers that produce their text themselves hand it to the file's
// buffer without a format to parse.
#ifndef KRCORE_KR_FILECURSOR_H
#define KRCORE_KR_FILECURSOR_H

#include <stddef.h>

#include "kr_file.h"

namespace krInternal {

class FileCursor {
public:
    static KR_RET_STATUS getPos(KR_FileAscii& file, long long& pos) {
        const KR_File& base = file;
        if (base.file_ == nullptr || !base.readMode_) return file.getPos(pos);
        pos = base.bufferPos_ + static_cast<long long>(base.next_);
        return KR_RET_TRUE;
    }

    static KR_RET_STATUS scanChar(KR_FileAscii& file, char& c) {
        KR_File& base = file;
        if (!base.readMode_ || base.next_ >= base.filled_) return file.scanChar(c);
        c = static_cast<char>(base.buffer_[base.next_++]);
        return KR_RET_TRUE;
    }

    // The bytes read ahead of the position, to be scanned in place: count := how many (0 when
    // none are buffered, or while the file is writing). Valid until the next call on the file.
    static const char* buffered(KR_FileAscii& file, size_t& count) {
        const KR_File& base = file;
        if (!base.readMode_ || base.next_ >= base.filled_) {
            count = 0;
            return nullptr;
        }
        count = base.filled_ - base.next_;
        return reinterpret_cast<const char*>(base.buffer_ + base.next_);
    }

    // Moves the position past count of the bytes that buffered gave.
    static void skip(KR_FileAscii& file, size_t count) {
        KR_File& base = file;
        base.next_ += count;
    }

    // Writes size bytes at the position as print writes the text it formatted: all of them, or
    // a failure status (reported).
    static KR_RET_STATUS write(KR_FileAscii& file, const void* data, size_t size) {
        KR_File& base = file;
        return base.writeBytes(data, size);
    }
};

}  // namespace krInternal

#endif  // KRCORE_KR_FILECURSOR_H
