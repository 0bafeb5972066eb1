// kr_hash_impl.h — (placeholder)
#ifndef KRCORE_KR_HASH_IMPL_H
#define KRCORE_KR_HASH_IMPL_H
#endif  // KRCORE_KR_HASH_IMPL_H
