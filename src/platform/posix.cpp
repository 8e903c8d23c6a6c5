#include <dlfcn.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio_ext.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

// A text of the process's own entry in the user database; nullptr when it has none.
OwnedPath user_entry(char* passwd::*field) {
    constexpr size_t kLargestEntry = 1 << 20;
    for (size_t size = 1024; size <= kLargestEntry; size *= 2) {
        const OwnedPath buffer(static_cast<char*>(malloc(size)));
        passwd entry = {};
        passwd* found = nullptr;
        if (!buffer || getpwuid_r(geteuid(), &entry, buffer.get(), size, &found) != ERANGE) {
            return OwnedPath(found != nullptr ? strdup(found->*field) : nullptr);
        }
    }
    return nullptr;
}

// A setting that names a folder; nullptr where it is empty or not there.
OwnedPath environment_folder(const char* name) {
    const char* const value = getenv(name);
    return OwnedPath(value != nullptr && *value != '\0' ? strdup(value) : nullptr);
}

// Held by a thread that forks, and by one that keeps others from it.
pthread_mutex_t fork_mutex = PTHREAD_MUTEX_INITIALIZER;

// The stream of the last wait that ended without input.
FILE* left_behind = nullptr;

int read_ahead(const FILE* stream) {
    return static_cast<int>(stream->_IO_read_end - stream->_IO_read_ptr);
}

// Whether a read would not block, as soon as that is known. Takes no lock: another thread may be
// blocked in a read of the stream.
StreamWait poll_stream(FILE* stream, int milliseconds) {
    pollfd entry = {fileno(stream), POLLIN, 0};
    if (read_ahead(stream) > 0 || feof_unlocked(stream) != 0 || __freadable(stream) == 0 ||
        entry.fd < 0) {
        return StreamWait::kInput;
    }
    const int ready = poll(&entry, 1, milliseconds);
    if (ready < 0 && errno != EINTR) {
        return StreamWait::kFailed;
    }
    return ready > 0 ? StreamWait::kInput : StreamWait::kTimeOut;
}

// Has a stream with input read it into its buffer. False when another thread reads the stream or
// has read it empty.
bool fill_buffer(FILE* stream) {
    if (ftrylockfile(stream) != 0) {
        return false;
    }
    const bool has_input = poll_stream(stream, 0) == StreamWait::kInput;
    if (has_input) {
        ungetc(getc_unlocked(stream), stream);
    }
    funlockfile(stream);
    return has_input;
}

const volatile int32_t* front_process = nullptr;
// What is to happen in the process in front.
struct sigaction guarded_action = {};
bool calls_go_on = false;

// Who is told of Ctrl-C. A forked child has a copy, and no thread.
struct Watch {
    void (*at_signal)();
    void (*after)();
    pid_t process;
    pthread_t main_thread;
    sem_t come;
};
Watch watch = {};

void* run_watch(void* /*none*/) {
    // What is started from here inherits that, and may have to be ended by end_call_in().
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
    for (;;) {
        if (sem_wait(&watch.come) == 0) {
            watch.after();
        }
    }
}

// Its parent may still be to hear of its end.
bool has_ended(pid_t process) {
    siginfo_t ended = {};
    return kill(process, 0) != 0 ||
           (waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            ended.si_pid == process);
}

// Has a system call that would begin anew after the signal end early instead. It is one of those
// that may do so in any case, should it only be about to begin.
void end_system_call(void* context) {
#if defined(__x86_64__)
    greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    static const unsigned char instruction[] = {0x0f, 0x05};
    if (memcmp(reinterpret_cast<const void*>(registers[REG_RIP]), instruction,
               sizeof instruction) != 0) {
        return;
    }
    switch (registers[REG_RAX]) {
        case SYS_read:
        case SYS_readv:
        case SYS_write:
        case SYS_writev:
        case SYS_open:
        case SYS_openat:
        case SYS_accept:
        case SYS_accept4:
        case SYS_connect:
        case SYS_recvfrom:
        case SYS_recvmsg:
        case SYS_sendto:
        case SYS_sendmsg:
        case SYS_wait4:
        case SYS_waitid:
        case SYS_flock:
        case SYS_fcntl:
            registers[REG_RAX] = -EINTR;
            registers[REG_RIP] += sizeof instruction;
            break;
        default:
            break;
    }
#else
    static_cast<void>(context);
#endif
}

bool is_in_front() {
    if (front_process == nullptr) {
        return true;
    }
    const pid_t front = *front_process;
    if (front == kEndAll) {
        _exit(0);
    }
    return front <= 0 || front == getpid() || has_ended(front);
}

void do_guarded(int number, siginfo_t* information, void* context) {
    if ((guarded_action.sa_flags & SA_SIGINFO) != 0) {
        guarded_action.sa_sigaction(number, information, context);
    } else if (guarded_action.sa_handler != SIG_DFL && guarded_action.sa_handler != SIG_IGN) {
        guarded_action.sa_handler(number);
    } else {
        // It comes again as soon as the handler returns.
        sigaction(number, &guarded_action, nullptr);
        raise(number);
    }
}

// How many signals are under way that are only to end system calls.
std::atomic<int> ends{0};

// Whether it is one of those.
bool is_end(const siginfo_t* information) {
    if (information->si_code != SI_TKILL || information->si_pid != getpid()) {
        return false;
    }
    int count = ends;
    while (count > 0 && !ends.compare_exchange_weak(count, count - 1)) {
    }
    return count > 0;
}

void end_call_in_thread(pthread_t thread) {
    ++ends;
    if (pthread_kill(thread, SIGINT) != 0) {
        --ends;
    }
}

// True where that is not known.
bool is_in_main_thread() {
    return watch.process != getpid() || pthread_equal(pthread_self(), watch.main_thread) != 0;
}

// What has come, for the calling process.
void let_through(int number, siginfo_t* information, void* context) {
    if (watch.at_signal != nullptr) {
        watch.at_signal();
    }
    do_guarded(number, information, context);
    if (watch.process == getpid()) {
        sem_post(&watch.come);
        if (!is_in_main_thread()) {
            end_call_in_thread(watch.main_thread);
        }
    }
}

void on_interrupt(int number, siginfo_t* information, void* context) {
    const int saved = errno;
    const bool is_only_end = is_end(information);
    if (is_only_end || is_in_front()) {
        if (!is_only_end) {
            let_through(number, information, context);
        }
        if (front_process != nullptr && !calls_go_on && (is_only_end || is_in_main_thread())) {
            end_system_call(context);
        }
    }
    errno = saved;
}

bool is_guard(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_interrupt;
}

// Which beats are wanted is told by their number: a thread whose number is another ends.
struct Beats {
    pthread_mutex_t mutex;
    pthread_cond_t changed;
    unsigned wanted;
    unsigned given;
    void (*beat)();
    int milliseconds;
};
Beats beats = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0, nullptr, 0};

// Waits for a while. Whether these beats are still wanted.
bool is_time_to_beat(unsigned number) {
    timespec end = {};
    clock_gettime(CLOCK_REALTIME, &end);
    const int64_t nanoseconds = end.tv_nsec + static_cast<int64_t>(beats.milliseconds) * 1000000;
    end.tv_sec += nanoseconds / 1000000000;
    end.tv_nsec = nanoseconds % 1000000000;
    int error = 0;
    pthread_mutex_lock(&beats.mutex);
    while (beats.wanted == number && error == 0) {
        error = pthread_cond_timedwait(&beats.changed, &beats.mutex, &end);
    }
    const bool is_wanted = beats.wanted == number;
    pthread_mutex_unlock(&beats.mutex);
    return is_wanted;
}

void* run_beats(void* number) {
    while (is_time_to_beat(static_cast<unsigned>(reinterpret_cast<uintptr_t>(number)))) {
        beats.beat();
    }
    return nullptr;
}

bool start_thread_without_signals(void* (*function)(void*), void* argument) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_t thread = {};
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool is_started = pthread_create(&thread, &attributes, function, argument) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return is_started;
}

}  // namespace

bool begin_beats(void (*beat)(), int milliseconds) {
    pthread_mutex_lock(&beats.mutex);
    const bool is_there = beats.wanted != 0;
    if (!is_there) {
        beats.beat = beat;
        beats.milliseconds = milliseconds;
        beats.wanted = ++beats.given != 0 ? beats.given : ++beats.given;
    }
    const unsigned number = beats.wanted;
    pthread_mutex_unlock(&beats.mutex);
    if (!is_there &&
        !start_thread_without_signals(run_beats, reinterpret_cast<void*>(uintptr_t{number}))) {
        end_beats();
        return false;
    }
    return true;
}

void end_beats() {
    pthread_mutex_lock(&beats.mutex);
    beats.wanted = 0;
    pthread_cond_broadcast(&beats.changed);
    pthread_mutex_unlock(&beats.mutex);
}

void forget_beats() {
    pthread_mutex_init(&beats.mutex, nullptr);
    pthread_cond_init(&beats.changed, nullptr);
    beats.wanted = 0;
}

int64_t wall_clock_seconds() { return static_cast<int64_t>(time(nullptr)); }

void call_in_forked_child(void (*function)()) { pthread_atfork(nullptr, nullptr, function); }

bool can_hold_forks() {
    static bool can_hold = false;
    if (!can_hold) {
        can_hold = pthread_atfork(hold_forks, let_forks, let_forks) == 0;
    }
    return can_hold;
}

void hold_forks() { pthread_mutex_lock(&fork_mutex); }

void let_forks() { pthread_mutex_unlock(&fork_mutex); }

bool guard_interrupts(const volatile int32_t* front) {
    struct sigaction now = {};
    if (sigaction(SIGINT, nullptr, &now) != 0) {
        return false;
    }
    if (front != nullptr) {
        front_process = front;
    }
    if (!is_guard(now)) {
        guarded_action = now;
        calls_go_on = (now.sa_flags & SA_RESTART) != 0;
    }
    struct sigaction guard = {};
    guard.sa_sigaction = on_interrupt;
    // Where it does not get through, no call may end early.
    guard.sa_flags = SA_SIGINFO | (front_process != nullptr || calls_go_on ? SA_RESTART : 0);
    sigemptyset(&guard.sa_mask);
    return sigaction(SIGINT, &guard, nullptr) == 0;
}

void let_calls_go_on(bool on) {
    struct sigaction now = {};
    if (sigaction(SIGINT, nullptr, &now) == 0 && is_guard(now)) {
        calls_go_on = on;
        guard_interrupts(nullptr);
    }
}

void end_call_in(long ident) {
    struct sigaction now = {};
    if (sigaction(SIGINT, nullptr, &now) == 0 && is_guard(now)) {
        end_call_in_thread(static_cast<pthread_t>(ident));
    }
}

bool watch_interrupts(void (*at_signal)(), void (*after)()) {
    if (watch.process == getpid()) {
        return true;
    }
    watch.at_signal = at_signal;
    watch.after = after;
    if (sem_init(&watch.come, 0, 0) != 0 || !start_thread_without_signals(run_watch, nullptr)) {
        return false;
    }
    watch.main_thread = pthread_self();
    watch.process = getpid();
    return true;
}

void send_signal_to_self(int number) { kill(getpid(), number); }

bool set_foreground_group(int terminal, int group) {
    // It would stop whoever asks for this in the background.
    sigset_t stops;
    sigset_t before;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTTOU);
    if (pthread_sigmask(SIG_BLOCK, &stops, &before) != 0) {
        return false;
    }
    const bool is_set = tcsetpgrp(terminal, group) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return is_set;
}

void* interpreter_symbol(const char* name, const void* /*anchor*/,
                         void* (* /*recorded_handle*/)()) {
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

char* user_name() { return user_entry(&passwd::pw_name).release(); }

char* application_data_folder() {
    constexpr char kUsual[] = "/.config";
    OwnedPath folder = environment_folder("XDG_CONFIG_HOME");
    // A relative one is to be ignored, by its definition.
    if (!folder || *folder.get() != '/') {
        OwnedPath home = environment_folder("HOME");
        if (!home) {
            home = user_entry(&passwd::pw_dir);
        }
        if (!home) {
            return nullptr;
        }
        folder.reset(static_cast<char*>(malloc(strlen(home.get()) + sizeof kUsual)));
        if (folder) {
            strcpy(folder.get(), home.get());
            strcat(folder.get(), kUsual);
        }
    }
    struct stat status = {};
    const bool exists = folder && stat(folder.get(), &status) == 0 && S_ISDIR(status.st_mode);
    return exists ? folder.release() : nullptr;
}

// No thread has to block in the stream here, since a descriptor can be waited for. A reader would
// hold the stream's lock, and whoever closes the stream or flushes all would hang; and what it
// takes between two waits would be missed by a program that reads the descriptor itself.
bool watch_stream(FILE* stream) {
    left_behind = stream;
    return true;
}

StreamWait wait_for_stream(FILE* stream, int milliseconds) {
    const StreamWait outcome = poll_stream(stream, milliseconds);
    if (outcome != StreamWait::kInput) {
        return outcome;
    }
    if (!fill_buffer(stream)) {
        // The input is another thread's, which may need the time to take it.
        poll(nullptr, 0, milliseconds);
        return StreamWait::kTimeOut;
    }
    left_behind = nullptr;
    return StreamWait::kInput;
}

int stream_buffered_bytes(FILE* stream) {
    if (stream == left_behind) {
        fill_buffer(stream);
    }
    return read_ahead(stream);
}

bool poll_descriptors(const int* descriptors, int count, bool* readable) {
    pollfd entries[kMaxPolled];
    for (int i = 0; i < count; ++i) {
        entries[i] = {descriptors[i], POLLIN, 0};
    }
    int ready = 0;
    do {
        ready = poll(entries, static_cast<nfds_t>(count), 0);
    } while (ready < 0 && errno == EINTR);
    bool all_good = ready >= 0;
    for (int i = 0; i < count; ++i) {
        readable[i] = entries[i].revents != 0;
        all_good = all_good && (entries[i].revents & POLLNVAL) == 0;
    }
    return all_good;
}

}  // namespace morvik
