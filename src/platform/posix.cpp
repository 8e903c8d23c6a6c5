#include <dlfcn.h>
#include <limits.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "platform/platform.h"

namespace morvik {

namespace {

struct FreeDeleter {
    void operator()(char* text) const { free(text); }
};
using OwnedPath = std::unique_ptr<char, FreeDeleter>;

bool identity_of(const char* path, FileIdentity* identity) {
    struct stat status = {};
    if (stat(path, &status) != 0) {
        return false;
    }
    *identity = {status.st_dev, status.st_ino};
    return true;
}

bool is_one_file(const char* a, const char* b) {
    FileIdentity first = {};
    FileIdentity second = {};
    return identity_of(a, &first) && identity_of(b, &second) && same_identity(first, second);
}

// The path with the current directory in front where it is relative.
OwnedPath joined_to_current_directory(const char* path) {
    const size_t length = strlen(path);
    const OwnedPath directory(*path == '/' ? nullptr : getcwd(nullptr, 0));
    if (*path != '/' && !directory) {
        return nullptr;
    }
    const size_t directory_length = directory ? strlen(directory.get()) : 0;
    if (directory_length + 1 + length > kMaxPath) {
        return nullptr;
    }
    OwnedPath joined(static_cast<char*>(malloc(directory_length + 1 + length + 1)));
    if (joined) {
        char* end = joined.get();
        if (directory) {
            memcpy(end, directory.get(), directory_length);
            end += directory_length;
            *end++ = '/';
        }
        memcpy(end, path, length + 1);
    }
    return joined;
}

// Takes ".", ".." and doubled slashes out of an absolute path, in place. Whether a ".." went: what
// it left behind may lead elsewhere where the folder before it was a symbolic link.
bool remove_dot_parts(char* path) {
    bool went_up = false;
    char* end = path;
    const char* part = path;
    while (*part != '\0') {
        while (*part == '/') {
            ++part;
        }
        const size_t length = strcspn(part, "/");
        if (length == 2 && part[0] == '.' && part[1] == '.') {
            went_up = true;
            while (end > path && *--end != '/') {
            }
        } else if (length > 0 && !(length == 1 && part[0] == '.')) {
            *end++ = '/';
            memmove(end, part, length);
            end += length;
        }
        part += length;
    }
    if (end == path) {
        *end++ = '/';
    }
    *end = '\0';
    return went_up;
}

bool copy_path(const char* path, char* out) {
    const size_t length = strlen(path);
    if (length > kMaxPath) {
        return false;
    }
    memcpy(out, path, length + 1);
    return true;
}

}  // namespace

int64_t wall_clock_seconds() { return static_cast<int64_t>(time(nullptr)); }

void* interpreter_symbol(const char* name, const void* /*anchor*/, void* (*/*recorded_handle*/)()) {
    // The interpreter is the program itself or a library it was linked with: either way its
    // exports are in the global scope, which needs no handle.
    return dlsym(RTLD_DEFAULT, name);
}

int wide_file_queries() { return 0; }

char* absolute_path(const char* path) {
    const OwnedPath joined = joined_to_current_directory(path);
    OwnedPath result(joined ? strdup(joined.get()) : nullptr);
    if (!result) {
        return nullptr;
    }
    // Links stay as they were spelled, unless leaving them unresolved would name another file.
    FileIdentity original = {};
    if (remove_dot_parts(result.get()) && identity_of(joined.get(), &original) &&
        !is_one_file(joined.get(), result.get())) {
        result.reset(realpath(joined.get(), nullptr));
    }
    return result.release();
}

bool long_path_name(const char* path, char* out, PathLog /*log*/) {
    // A name that differs from the one on disk, in case or otherwise, is another file's.
    return copy_path(path, out);
}

bool short_path_name(const char* path, char* out, FileIdentity* identity, PathLog log) {
    *out = '\0';
    if (log != nullptr) {
        log("CHECK1 %s\n", path);
    }
    const OwnedPath resolved(realpath(path, nullptr));
    const bool found =
        resolved && copy_path(resolved.get(), out) && identity_of(resolved.get(), identity);
    if (log != nullptr) {
        log("CHECK2 %ld %s\n", found ? static_cast<long>(strlen(out)) : 0L, out);
    }
    return found;
}

bool same_spelling(const char* a, const char* b) {
    if (strcasecmp(a, b) != 0) {
        return false;
    }
    FileIdentity first = {};
    FileIdentity second = {};
    return strcmp(a, b) == 0 || !identity_of(a, &first) || !identity_of(b, &second) ||
           same_identity(first, second);
}

bool same_short_name(const char* a, const char* b) { return strcmp(a, b) == 0; }

void fold_file_name(char* /*path*/) {
    // A lower-cased name would be no file's name.
}

bool can_read_file(const char* path) { return access(path, R_OK) == 0; }

}  // namespace morvik
