// Everything the core asks of the operating system. One implementation file per platform; no
// other file tests which platform it is built for, and none of this knows the interpreter.
#ifndef MORVIK_PLATFORM_PLATFORM_H
#define MORVIK_PLATFORM_PLATFORM_H

#include <cstdint>

namespace morvik {

// Wall-clock time in whole seconds since the epoch.
int64_t wall_clock_seconds();

// Address of a symbol that the running interpreter exports, or nullptr. `anchor` is any address
// inside the interpreter's library. `recorded_handle` answers the interpreter's own record of its
// library handle, or nullptr; it is asked only where the platform cannot find a library by an
// address in it.
void* interpreter_symbol(const char* name, const void* anchor, void* (*recorded_handle)());

}  // namespace morvik

#endif
