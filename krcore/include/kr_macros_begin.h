// kr_macros_begin.h — the internal macros of a template header, for the length of that header.
// A template header includes this after its own includes and kr_macros_end.h just before its
// include guard closes. The macros' earlier meanings are pushed and popped again, so host code
// that includes a template header is left without any KRI_ macro, while a library source that
// had them keeps them. No include guard: every template header includes it once.
#pragma push_macro("KRI_FAIL")
#pragma push_macro("KRI_MSG")
#pragma push_macro("KRI_FAILED")
#pragma push_macro("KRI_INLINE")
#undef KRI_FAIL
#undef KRI_MSG
#undef KRI_FAILED
#undef KRI_INLINE

// Each is an expression, so every return stays visible at the call site. KRI_UNIT, the report
// name, is set by the header that uses them.
#define KRI_FAIL(st) krInternal::failAt((st), KRI_UNIT, __LINE__)
#define KRI_MSG(text, ...) KR_reportErrorMsg(KRI_UNIT, __LINE__, (text), __VA_ARGS__)
#define KRI_FAILED(st) ((st) > 2)  // 0..2 are answers; failures start at 3

// Every member function of the container templates that is defined in its header is always
// inlined: a Windows DLL does not export the inline members of the template instantiations it
// provides, so no caller may be left with an out-of-line call to one, with optimisation off as
// well. All other members are defined out of line and exported with their instantiation.
#if defined(_MSC_VER)
#define KRI_INLINE __forceinline
#else
#define KRI_INLINE inline __attribute__((always_inline))
#endif
