// kr_endian.h — little-endian words in byte buffers, for everything the library writes or packs.
// Packed objects, binary files and the record file's header and table keep their numbers
// little-endian on every platform, so data written on one reads back on another. The width of
// a word is the width of its unsigned type. Internal to the library.
#ifndef KRCORE_KR_ENDIAN_H
#define KRCORE_KR_ENDIAN_H

#include <stddef.h>

namespace krInternal {

// Writes value at bytes, least significant byte first (sizeof(Unsigned) bytes).
template <class Unsigned>
inline void storeLe(unsigned char* bytes, Unsigned value) {
    for (size_t i = 0; i < sizeof(Unsigned); ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

// Reads the word that storeLe wrote.
template <class Unsigned>
inline Unsigned loadLe(const unsigned char* bytes) {
    Unsigned value = 0;
    for (size_t i = 0; i < sizeof(Unsigned); ++i) {
        value = static_cast<Unsigned>(value | (static_cast<Unsigned>(bytes[i]) << (8 * i)));
    }
    return value;
}

// The same on the char buffers of the pack and unpack operations.
template <class Unsigned>
inline void storeLe(char* bytes, Unsigned value) {
    storeLe(reinterpret_cast<unsigned char*>(bytes), value);
}

template <class Unsigned>
inline Unsigned loadLe(const char* bytes) {
    return loadLe<Unsigned>(reinterpret_cast<const unsigned char*>(bytes));
}

}  // namespace krInternal

#endif  // KRCORE_KR_ENDIAN_H
