// kr_macros_end.h — gives back what kr_macros_begin.h took: the KRI_ macros a template header
// used are undefined and their earlier meanings, if any, restored. No include guard.
#undef KRI_FAIL
#undef KRI_MSG
#undef KRI_FAILED
#undef KRI_INLINE
#pragma pop_macro("KRI_FAIL")
#pragma pop_macro("KRI_MSG")
#pragma pop_macro("KRI_FAILED")
#pragma pop_macro("KRI_INLINE")
