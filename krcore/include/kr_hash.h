// kr_hash.h — (placeholder)
#ifndef KRCORE_KR_HASH_H
#define KRCORE_KR_HASH_H
#endif  // KRCORE_KR_HASH_H
