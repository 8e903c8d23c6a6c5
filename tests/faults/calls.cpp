// The core's own calls that can fail, each with a step aside. No header of the interpreter here:
// every function stands for one of up to six words, which reach it in registers, and one that
// this host does not have is never called.
#include "injection.h"

// `met` is what the linker makes of a call, `real` what is called in the end.
#define FAILING(met, real, fails, failure)                                              \
    extern "C" [[gnu::weak]] long real(long a, long b, long c, long d, long e, long f); \
    extern "C" long met(long a, long b, long c, long d, long e, long f);                \
    long met(long a, long b, long c, long d, long e, long f) {                          \
        return (fails) ? (failure) : real(a, b, c, d, e, f);                            \
    }

#define ALLOCATOR(name) FAILING(__wrap_##name, __real_##name, allocation_fails(#name), 0)
#define COLLECTOR(name) FAILING(__wrap_##name, __real_##name, error_is_pending(#name), 0)
#define SPECIAL(name)
#define BLOCK(name) FAILING(__wrap_##name, name, allocation_fails(#name), 0)
#define PLAIN(name) FAILING(__wrap_##name, name, call_fails(), 0)
#define POINTER(name) FAILING(__wrap_##name, name, error_is_pending(#name) || call_fails(), 0)
#define STATUS(name) FAILING(__wrap_##name, name, error_is_pending(#name) || call_fails(), -1)

#ifndef __clang__
#pragma GCC diagnostic ignored "-Wbuiltin-declaration-mismatch"
#endif

using morvik::allocation_fails;
using morvik::call_fails;
using morvik::error_is_pending;

#include "calls.def"
