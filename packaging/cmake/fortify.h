/* Included before every source file of the library and the examples. -D_FORTIFY_SOURCE would not
   do: glibc warns about it without optimisation, and only the compiler knows if it optimises. */
#if defined __OPTIMIZE__
#undef _FORTIFY_SOURCE
#if defined __clang__ || __GNUC__ >= 12
#define _FORTIFY_SOURCE 3
#else
#define _FORTIFY_SOURCE 2
#endif
#endif
