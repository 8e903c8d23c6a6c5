// Another process, as the system shows it to its own user: its memory, what is mapped there, and
// where its threads are. Nothing here disturbs it.
#ifndef MORVIK_ATTACHMODULE_TARGET_H
#define MORVIK_ATTACHMODULE_TARGET_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace morvik {

using Address = uint64_t;

// Why something cannot be done, for people. The first reason given is kept.
struct Failure {
    char text[512] = "";

    // Returns false.
    bool because(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

class TargetMemory {
  public:
    TargetMemory() = default;
    ~TargetMemory();
    TargetMemory(const TargetMemory&) = delete;
    TargetMemory& operator=(const TargetMemory&) = delete;

    bool open(pid_t process, Failure* failure);
    bool read(Address address, void* into, size_t size) const;
    bool write(Address address, const void* from, size_t size) const;

    template <typename Value>
    bool read(Address address, Value* value) const {
        return read(address, value, sizeof *value);
    }
    template <typename Value>
    bool write(Address address, const Value& value) const {
        return write(address, &value, sizeof value);
    }

  private:
    int descriptor_ = -1;
};

struct Mapping {
    Address begin;
    Address end;
    uint64_t offset;
    bool is_executable;
    std::string path;  // empty for what is no file's
};

std::vector<Mapping> mappings_of(pid_t process);

// The threads of a process, the main one first.
std::vector<pid_t> threads_of(pid_t process);

// A thread that is inside a system call: which, and where. Equal ones, taken one after the other,
// are one and the same wait.
struct Wait {
    int64_t call = -1;  // -1: it is in none, or nobody knows
    Address stack = 0;
    Address code = 0;
    uint64_t switches = 0;

    bool operator==(const Wait& other) const {
        return call == other.call && stack == other.stack && code == other.code &&
               switches == other.switches;
    }
};

Wait wait_of(pid_t process, pid_t thread);

// Whether it is a system call in which programs wait for something to happen: a thread is in none
// of the C library's critical sections there, and goes on waiting where it is interrupted.
bool is_plain_wait(int64_t call);

}  // namespace morvik

#endif
