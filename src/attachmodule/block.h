// The block of memory that another process is given for as long as something is loaded into it:
// the code that is run there, what that works with, and a stack for calls.
#ifndef MORVIK_ATTACHMODULE_BLOCK_H
#define MORVIK_ATTACHMODULE_BLOCK_H

#include <cstddef>
#include <cstdint>

#include "attachmodule/interpreter.h"

namespace morvik {

constexpr size_t kPageSize = 4096;
constexpr size_t kMostText = 2 * kPageSize;
// The first page is code, the next ones are data, and the rest is the stack.
constexpr size_t kBlockSize = 16 * kPageSize;

// How far it has got. `Failed` ones are told by the thread that was used.
enum Started : uint32_t { kNotYet = 0, kStarted = 1, kNoThread = 2 };

// Lies at the beginning of the second page. The code knows these places by their numbers.
struct BlockData {
    Interpreter interpreter;
    Address block;
    // 1 from when somebody has begun to start the thread, or nobody is to any more.
    uint32_t claimed;
    // The code and the data go when nobody uses them: the thread, and the interpreter as long as
    // it has a pending call.
    uint32_t users;
    // A Started.
    uint32_t started;
    // 1 when no thread is kept in the block by force any more.
    uint32_t released;
    char text[kMostText];
};

// The code, and where its parts begin. See block.cpp for what they do.
struct BlockCode {
    const void* begin;
    size_t size;
    // All are entered with the data's address as their only argument and end at a breakpoint
    // trap, with an answer in the register for that.
    Address check_interpreter;  // 1 if it is there, and for kBegin: 1 if a thread may be started
    Address queue;
    Address start;
};

// The parts' addresses are relative to the beginning.
BlockCode block_code();

}  // namespace morvik

#endif
