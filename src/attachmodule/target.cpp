#include "attachmodule/target.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace morvik {

namespace {

constexpr int64_t kPlainWaits[] = {
    SYS_read,
    SYS_readv,
    SYS_recvfrom,
    SYS_recvmsg,
    SYS_accept,
    SYS_accept4,
    SYS_write,
    SYS_writev,
    SYS_sendto,
    SYS_sendmsg,
    SYS_poll,
    SYS_ppoll,
    SYS_select,
    SYS_pselect6,
    SYS_epoll_wait,
    SYS_epoll_pwait,
    SYS_nanosleep,
    SYS_clock_nanosleep,
    SYS_futex,
    SYS_wait4,
    SYS_waitid,
    SYS_flock,
    SYS_fcntl,
    SYS_pause,
    SYS_rt_sigsuspend,
    SYS_rt_sigtimedwait,
    SYS_restart_syscall,
};

// The numbers after each of these words in a file of the system's, added up.
uint64_t sum_after(const char* path, const char* word) {
    FILE* const file = std::fopen(path, "re");
    if (file == nullptr) {
        return 0;
    }
    uint64_t sum = 0;
    char line[256];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        const char* const found = std::strstr(line, word);
        if (found != nullptr) {
            sum += std::strtoull(found + std::strlen(word), nullptr, 10);
        }
    }
    std::fclose(file);
    return sum;
}

}  // namespace

bool Failure::because(const char* format, ...) {
    if (text[0] == '\0') {
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
    }
    return false;
}

TargetMemory::~TargetMemory() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

bool TargetMemory::open(pid_t process, Failure* failure) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/mem", process);
    descriptor_ = ::open(path, O_RDWR | O_CLOEXEC);
    if (descriptor_ < 0) {
        return failure->because("the system does not let process %d be debugged: %s", process,
                                std::strerror(errno));
    }
    return true;
}

bool TargetMemory::read(Address address, void* into, size_t size) const {
    return ::pread(descriptor_, into, size, static_cast<off_t>(address)) ==
           static_cast<ssize_t>(size);
}

bool TargetMemory::write(Address address, const void* from, size_t size) const {
    return ::pwrite(descriptor_, from, size, static_cast<off_t>(address)) ==
           static_cast<ssize_t>(size);
}

std::vector<Mapping> mappings_of(pid_t process) {
    std::vector<Mapping> found;
    char name[64];
    std::snprintf(name, sizeof name, "/proc/%d/maps", process);
    FILE* const file = std::fopen(name, "re");
    if (file == nullptr) {
        return found;
    }
    char* line = nullptr;
    size_t room = 0;
    while (::getline(&line, &room, file) > 0) {
        Mapping mapping;
        char rights[8] = "";
        int path_at = 0;
        if (std::sscanf(line, "%" SCNx64 "-%" SCNx64 " %7s %" SCNx64 " %*s %*s %n", &mapping.begin,
                        &mapping.end, rights, &mapping.offset, &path_at) < 4) {
            continue;
        }
        mapping.is_executable = std::strchr(rights, 'x') != nullptr;
        if (path_at > 0) {
            mapping.path = line + path_at;
            mapping.path.erase(mapping.path.find_last_not_of('\n') + 1);
        }
        found.push_back(mapping);
    }
    std::free(line);
    std::fclose(file);
    return found;
}

std::vector<pid_t> threads_of(pid_t process) {
    std::vector<pid_t> found;
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/task", process);
    DIR* const folder = ::opendir(path);
    if (folder == nullptr) {
        return found;
    }
    while (const dirent* const entry = ::readdir(folder)) {
        const int thread = std::atoi(entry->d_name);
        if (thread == process) {
            found.insert(found.begin(), thread);
        } else if (thread > 0) {
            found.push_back(thread);
        }
    }
    ::closedir(folder);
    return found;
}

Wait wait_of(pid_t process, pid_t thread) {
    Wait wait;
    char path[96];
    // Without these counts two waits at one place could not be told apart.
    std::snprintf(path, sizeof path, "/proc/%d/task/%d/status", process, thread);
    wait.switches = sum_after(path, "ctxt_switches:");
    std::snprintf(path, sizeof path, "/proc/%d/task/%d/syscall", process, thread);
    FILE* const file = std::fopen(path, "re");
    if (file == nullptr) {
        return wait;
    }
    // The number, six arguments, the stack's and the code's address; or "running".
    if (std::fscanf(file, "%" SCNd64 " %*s %*s %*s %*s %*s %*s %" SCNx64 " %" SCNx64, &wait.call,
                    &wait.stack, &wait.code) != 3) {
        wait.call = -1;
    }
    std::fclose(file);
    return wait;
}

bool is_plain_wait(int64_t call) {
    return std::find(std::begin(kPlainWaits), std::end(kPlainWaits), call) != std::end(kPlainWaits);
}

}  // namespace morvik
