// kr_filecursor.h — inline character access to a text file's buffer, for the library's scanners.
// The tag reader takes the position before every character and reads characters one at a time;
// through the exported members each of those is a call into the library (and a clear of the user
// error). While the byte wanted is in the buffer, these read it in place with the same result;
// otherwise, and for every failure, they call the public member, which reports as usual.
#ifndef KRCORE_KR_FILECURSOR_H
#define KRCORE_KR_FILECURSOR_H

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
};

}  // namespace krInternal

#endif  // KRCORE_KR_FILECURSOR_H
