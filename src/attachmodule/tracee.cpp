#include "attachmodule/tracee.h"

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>

namespace morvik {

namespace {

constexpr double kHoldPatience = 2.0;
constexpr double kRunPatience = 10.0;
constexpr size_t kMostExtended = size_t{64} * 1024;
// An error that only the system sees: it makes the call again, or lets a handler of the program's
// have its way.
constexpr int64_t kRestart = -512;
// What a trap or a fault of what is run there is told by must come through.
constexpr int kOwnSignals[] = {SIGTRAP, SIGSEGV, SIGBUS, SIGILL, SIGFPE};

double now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

bool is_asked_stop(int status) { return status >> 16 == PTRACE_EVENT_STOP; }

uint64_t all_but_own_signals() {
    uint64_t blocked = ~0ULL;
    for (const int signal : kOwnSignals) {
        blocked &= ~(1ULL << (signal - 1));
    }
    return blocked;
}

}  // namespace

bool Tracee::hold(Failure* failure) {
    if (ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) != 0) {
        return failure->because("the system does not let process %d be debugged: %s", process_,
                                std::strerror(errno));
    }
    is_seized_ = true;
    if (ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) != 0) {
        return failure->because("process %d has ended", process_);
    }
    const double end = now() + kHoldPatience;
    int status = 0;
    while (wait_for_stop(end - now(), &status, failure)) {
        if (is_asked_stop(status)) {
            is_held_ = read_state(failure);
            return is_held_;
        }
        // A signal was faster: the program gets it.
        if (ptrace(PTRACE_CONT, thread_, nullptr, static_cast<long>(WSTOPSIG(status))) != 0) {
            break;
        }
    }
    return failure->because("process %d cannot be stopped", process_);
}

bool Tracee::is_divertible(const TargetMemory& memory) const {
    struct {
        uint64_t area;
        uint32_t size, signature, flags, pad;
    } sequences = {};
    struct {
        uint32_t version, flags;
        uint64_t begin, length, abort;
    } section = {};
    constexpr auto kGetRestartable = static_cast<__ptrace_request>(0x420f);
    constexpr Address kSectionAt = 8;  // in the area
    Address section_at = 0;
    if (ptrace(kGetRestartable, thread_, sizeof sequences, &sequences) <= 0 ||
        sequences.area == 0) {
        return true;
    }
    if (!memory.read(sequences.area + kSectionAt, &section_at) || section_at == 0) {
        return true;
    }
    return memory.read(section_at, &section) && registers_.rip - section.begin >= section.length;
}

bool Tracee::is_in(const Wait& wait) const {
    return static_cast<int64_t>(registers_.orig_rax) == wait.call && registers_.rsp == wait.stack &&
           registers_.rip == wait.code;
}

bool Tracee::call_system(Address instruction, int64_t number,
                         const std::vector<uint64_t>& arguments, int64_t* result,
                         Failure* failure) {
    user_regs_struct changed = registers_;
    unsigned long long* const places[] = {&changed.rdi, &changed.rsi, &changed.rdx,
                                          &changed.r10, &changed.r8,  &changed.r9};
    for (size_t i = 0; i < arguments.size() && i < 6; ++i) {
        *places[i] = arguments[i];
    }
    changed.rax = static_cast<uint64_t>(number);
    changed.orig_rax = ~0ULL;  // It is in no system call that would be made again.
    changed.rip = instruction;
    if (!set_registers(changed) || !resume_until_trap(PTRACE_SINGLESTEP, failure)) {
        return failure->because("process %d did not make a system call", process_);
    }
    *result = ptrace(PTRACE_PEEKUSER, thread_, offsetof(user_regs_struct, rax), nullptr);
    restore();
    return true;
}

bool Tracee::run(Address code, Address stack, uint64_t argument, int64_t* result,
                 Failure* failure) {
    user_regs_struct changed = registers_;
    changed.rip = code;
    changed.rsp = stack & ~15ULL;
    changed.rbp = 0;
    changed.rdi = argument;
    changed.orig_rax = ~0ULL;
    changed.eflags &= ~0x500ULL;  // Neither step by step nor backwards through memory.
    const bool is_run = set_registers(changed) && resume_until_trap(PTRACE_CONT, failure);
    if (is_run) {
        *result = ptrace(PTRACE_PEEKUSER, thread_, offsetof(user_regs_struct, rax), nullptr);
    }
    restore();
    return is_run || failure->because("process %d did not run what it was given", process_);
}

void Tracee::release() {
    if (is_held_) {
        restore();
        ptrace(PTRACE_SETSIGMASK, thread_, sizeof blocked_signals_, &blocked_signals_);
    }
    if (is_seized_) {
        // One that runs cannot be let go of; it goes free when this process ends.
        ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
    }
    is_seized_ = is_held_ = false;
}

bool Tracee::wait_for_stop(double seconds, int* status, Failure* failure) {
    const double end = now() + seconds;
    do {
        const pid_t found = waitpid(thread_, status, WNOHANG | __WALL);
        if (found == thread_) {
            if (WIFSTOPPED(*status)) {
                return true;
            }
            is_seized_ = is_held_ = false;
            return failure->because("process %d has ended", process_);
        }
        if (found < 0) {
            return failure->because("process %d has ended", process_);
        }
        usleep(200);
    } while (now() < end);
    return false;
}

bool Tracee::read_state(Failure* failure) {
    extended_.resize(kMostExtended);
    iovec general = {&registers_, sizeof registers_};
    iovec extended = {extended_.data(), extended_.size()};
    const uint64_t blocked = all_but_own_signals();
    if (ptrace(PTRACE_GETREGSET, thread_, NT_PRSTATUS, &general) != 0 ||
        general.iov_len != sizeof registers_ || registers_.cs != 0x33) {
        return failure->because("process %d is none of 64 bits", process_);
    }
    if (ptrace(PTRACE_GETREGSET, thread_, NT_X86_XSTATE, &extended) != 0 ||
        ptrace(PTRACE_GETSIGMASK, thread_, sizeof blocked_signals_, &blocked_signals_) != 0 ||
        ptrace(PTRACE_SETSIGMASK, thread_, sizeof blocked, &blocked) != 0) {
        return failure->because("process %d cannot be looked into: %s", process_,
                                std::strerror(errno));
    }
    extended_.resize(extended.iov_len);
    // Some calls that wait say that a signal has come where there was only this stop.
    if (is_plain_wait(static_cast<int64_t>(registers_.orig_rax)) &&
        static_cast<int64_t>(registers_.rax) == -EINTR) {
        registers_.rax = static_cast<uint64_t>(kRestart);
    }
    return true;
}

bool Tracee::resume_until_trap(int how, Failure* failure) {
    const double end = now() + kRunPatience;
    if (ptrace(static_cast<__ptrace_request>(how), thread_, nullptr, nullptr) != 0) {
        return false;
    }
    int status = 0;
    while (wait_for_stop(end - now(), &status, failure)) {
        if (!is_asked_stop(status)) {
            return WSTOPSIG(status) == SIGTRAP;
        }
        // The whole process is being stopped, by its user: that waits for this.
        if (ptrace(static_cast<__ptrace_request>(how), thread_, nullptr, nullptr) != 0) {
            return false;
        }
    }
    // It is to be as it was in any case.
    if (is_held_ && ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) == 0) {
        wait_for_stop(kHoldPatience, &status, failure);
    }
    return false;
}

bool Tracee::set_registers(const user_regs_struct& registers) {
    user_regs_struct copy = registers;
    iovec general = {&copy, sizeof copy};
    return ptrace(PTRACE_SETREGSET, thread_, NT_PRSTATUS, &general) == 0;
}

void Tracee::restore() {
    iovec extended = {extended_.data(), extended_.size()};
    ptrace(PTRACE_SETREGSET, thread_, NT_X86_XSTATE, &extended);
    set_registers(registers_);
}

}  // namespace morvik
