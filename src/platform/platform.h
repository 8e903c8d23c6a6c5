// Everything the core asks of the operating system. One implementation file per platform; no
// other file tests which platform it is built for, and none of this knows the interpreter.
#ifndef MORVIK_PLATFORM_PLATFORM_H
#define MORVIK_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace morvik {

// Wall-clock time in whole seconds since the epoch.
int64_t wall_clock_seconds();

// Has a function called in every child that the process forks, before anything else of the child
// runs. Once per function.
void call_in_forked_child(void (*function)());

// Between the last two no other thread of the process forks: one that wants to waits. What is done
// there waits for nothing that a thread may hold while it forks. The first one is to be called
// before, once at least, while no thread forks; false where there is no memory for that.
bool can_hold_forks();
void hold_forks();
void let_forks();

// Has a function called every so many milliseconds, in a thread of the process's own in which no
// signal is handled. Until it is ended, which waits for nothing, there is only one. False where
// there can be no thread.
bool begin_beats(void (*beat)(), int milliseconds);
void end_beats();
// In a forked child, where there is no such thread.
void forget_beats();

// Has Ctrl-C (SIGINT) do what is set for it now only where the number at `front`, in memory that
// processes share and that stays, is this process's id, or that of one that has ended. Elsewhere
// nothing happens then: not even a system call ends early. To be called again whenever something
// else has been set for the signal. False where it cannot be.
// Where the number there is kEndAll, Ctrl-C ends the process with exit status 0.
// With nullptr nothing is looked at but what was given before.
bool guard_interrupts(const volatile int32_t* front);
constexpr int32_t kEndAll = -1;

// Whether system calls go on after a Ctrl-C that gets through the guard, where they can. They do
// not until this is said, anew after whatever else is set for the signal.
void let_calls_go_on(bool on);

// Where the guard is in force, the system call that this thread waits in ends early, by its error
// for that. The ident is the interpreter's, of a thread that there is.
void end_call_in(long ident);

// Tells of each Ctrl-C that gets through the guard: `at_signal` is called in the signal's handler,
// before what is set for the signal; `after` later, in a thread of the process's own in which no
// other signal is handled. A forked child has no such thread until this is called again there.
// False where there can be none. For the main thread: where the system has given the signal to
// another one, the call that the main thread waits in ends as well.
bool watch_interrupts(void (*at_signal)(), void (*after)());

// Sends a signal to the calling process.
void send_signal_to_self(int number);

// Brings a process group to the foreground of a terminal of the calling process, which need not be
// there itself. False where it cannot be.
bool set_foreground_group(int terminal, int group);

// Address of a symbol that the running interpreter exports, or nullptr. `anchor` is any address
// inside the interpreter's library. `recorded_handle` answers the interpreter's own record of its
// library handle, or nullptr; it is asked only where the platform cannot find a library by an
// address in it.
void* interpreter_symbol(const char* name, const void* anchor, void* (*recorded_handle)());

// Paths. None has more than kMaxPath characters; a buffer for one holds kMaxPath + 1. A log
// function is printf-like and may be nullptr.
constexpr size_t kMaxPath = 32000;
using PathLog = void (*)(const char* format, ...);

// What a file system knows a file by, however its name is spelled. All zero where a platform
// has nothing beyond the name.
struct FileIdentity {
    uint64_t device;
    uint64_t file;
};

// Whether file queries with wide-character names exist here: 1 or 0.
int wide_file_queries();

// The absolute form of a path, without ".", ".." and doubled separators; free() it. nullptr when
// there is none.
char* absolute_path(const char* path);

// An absolute path as the file system spells it.
bool long_path_name(const char* path, char* out, PathLog log);

// The one name that all spellings of an existing file share, and its identity.
bool short_path_name(const char* path, char* out, FileIdentity* identity, PathLog log);

// Whether two spellings name one file without a look at the file, as this platform's rules for
// letter case have it. Different files under such names are told apart.
bool same_spelling(const char* a, const char* b);

// Whether two short names are equal.
bool same_short_name(const char* a, const char* b);

// Whether two identities are known and equal.
inline bool same_identity(const FileIdentity& a, const FileIdentity& b) {
    return (a.device != 0 || a.file != 0) && a.device == b.device && a.file == b.file;
}

// Brings a module's file name into the one letter case in which such names are kept, in place.
void fold_file_name(char* path);

// Whether a file can be opened for reading.
bool can_read_file(const char* path);

// Texts about the user: UTF-8 on Windows, on Linux the bytes that the system has, which are UTF-8
// nearly everywhere. free() them. nullptr when there is no such thing.

// The name of the user that the process runs as.
char* user_name();

// The existing folder in which the user's programs keep their data.
char* application_data_folder();

// Waiting for a C stream to have input, for one thread of the process at a time. A wait that ends
// without input leaves its watch behind, and the next wait goes on with it.
enum class StreamWait { kTimeOut, kInput, kFailed };

// Begins a wait. False when it cannot be done.
bool watch_stream(FILE* stream);

// Goes on with the wait for at most so long. kInput, which ends it, means that a character, which
// stays in the stream, or the stream's end can be read without blocking.
StreamWait wait_for_stream(FILE* stream, int milliseconds);

// How many bytes the stream holds that were read from its file already, those included that came
// to a watch left behind. Not above 0 means none.
int stream_buffered_bytes(FILE* stream);

// Finds out, without waiting, which of `count` distinct descriptors can be read without blocking:
// those have their flag set in `readable`. False when one is bad, or where the platform refuses.
constexpr int kMaxPolled = 64;
bool poll_descriptors(const int* descriptors, int count, bool* readable);

}  // namespace morvik

#endif
