// One thread of another process, held for a moment to run something there: it is left as it was.
#ifndef MORVIK_ATTACHMODULE_TRACEE_H
#define MORVIK_ATTACHMODULE_TRACEE_H

#include <sys/user.h>

#include <vector>

#include "attachmodule/target.h"

namespace morvik {

// Whoever holds a thread must not be ended meanwhile; when its own thread ends, all that it holds
// go free.
class Tracee {
  public:
    Tracee(pid_t process, pid_t thread) : process_(process), thread_(thread) {}
    ~Tracee() { release(); }
    Tracee(const Tracee&) = delete;
    Tracee& operator=(const Tracee&) = delete;

    // Stops the thread wherever it is. It then is given no signals but those of its own making.
    // Where that fails, it goes on, at the latest when the caller ends.
    bool hold(Failure* failure);

    // For one that is held. What it is about to do: its registers when it was stopped.
    const user_regs_struct& registers() const { return registers_; }

    // The system's ident of the thread, which is the interpreter's as well.
    Address ident() const { return registers_.fs_base; }

    // Whether it can be diverted: not inside a sequence that the system starts anew when it is
    // interrupted.
    bool is_divertible(const TargetMemory& memory) const;

    // Whether it is inside the system call that it was seen in.
    bool is_in(const Wait& wait) const;

    // Has the thread make a system call, by an instruction for that at any address in its memory.
    bool call_system(Address instruction, int64_t number, const std::vector<uint64_t>& arguments,
                     int64_t* result, Failure* failure);

    // Has it run code that ends at a breakpoint trap, on a stack that ends at `stack`, with one
    // argument.
    bool run(Address code, Address stack, uint64_t argument, int64_t* result, Failure* failure);

    // Lets it go on where it was. A system call that it was waiting in is waited in again.
    void release();

  private:
    bool wait_for_stop(double seconds, int* status, Failure* failure);
    bool read_state(Failure* failure);
    bool resume_until_trap(int how, Failure* failure);
    bool set_registers(const user_regs_struct& registers);
    void restore();

    pid_t process_;
    pid_t thread_;
    bool is_seized_ = false;
    bool is_held_ = false;
    user_regs_struct registers_ = {};
    // Of the floating point and vector units.
    std::vector<char> extended_;
    uint64_t blocked_signals_ = 0;
};

}  // namespace morvik

#endif
