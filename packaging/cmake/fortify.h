/* Every source file of the library and of the examples begins with this, as if it included it. It
   stands here and not in a compiler's option because glibc warns of _FORTIFY_SOURCE without
   optimisation: only the compiler knows which flags it got in the end. */
#if defined __OPTIMIZE__
#undef _FORTIFY_SOURCE
#if defined __clang__ || __GNUC__ >= 12
#define _FORTIFY_SOURCE 3
#else
#define _FORTIFY_SOURCE 2
#endif
#endif
