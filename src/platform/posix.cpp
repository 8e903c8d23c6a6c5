#include <dlfcn.h>

#include <ctime>

#include "platform/platform.h"

namespace morvik {

int64_t wall_clock_seconds() { return static_cast<int64_t>(time(nullptr)); }

void* interpreter_symbol(const char* name, const void* /*anchor*/, void* (*/*recorded_handle*/)()) {
    // The interpreter is the program itself or a library it was linked with: either way its
    // exports are in the global scope, which needs no handle.
    return dlsym(RTLD_DEFAULT, name);
}

}  // namespace morvik
