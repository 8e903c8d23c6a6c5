#include "attachmodule/load.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "attachmodule/block.h"
#include "attachmodule/interpreter.h"
#include "attachmodule/tracee.h"

namespace morvik {

namespace {

// In milliseconds: how long a thread has to wait in one place to be taken for one that waits, how
// long the interpreter may take for its pending calls before other threads are looked at, and how
// often that is looked after; and how long the start of a thread may take that has begun.
constexpr int kSameWait = 20;
constexpr int kPendingPatience = 500;
constexpr int kLook = 5;
constexpr int kStartPatience = 10000;
constexpr size_t kSearchedAtOnce = 64 * kPageSize;
constexpr unsigned char kSystemCall[] = {0x0f, 0x05};

int64_t milliseconds() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

enum class Attempt { kStarted, kNotHere, kFailed };

class Loading {
  public:
    Loading(pid_t process, const char* text, int give_up, Failure* failure)
        : process_(process), text_(text), give_up_(give_up), failure_(failure) {}

    bool load(double seconds) {
        if (!memory_.open(process_, failure_) ||
            !find_interpreter(process_, memory_, &interpreter_, failure_)) {
            return false;
        }
        const bool is_started =
            start(milliseconds() + static_cast<int64_t>(seconds * 1000)) && await_thread();
        if (!is_started) {
            cancel();
        }
        if (block_ != 0) {
            // From here on the block may go at any time.
            memory_.write(data() + offsetof(BlockData, released), uint32_t{1});
        }
        return is_started;
    }

  private:
    Address data() const { return block_ + kPageSize; }

    // Whether somebody has begun to start the thread.
    bool is_claimed() const {
        uint32_t claimed = 0;
        return block_ != 0 && memory_.read(data() + offsetof(BlockData, claimed), &claimed) &&
               claimed != 0;
    }

    // False when nobody waits for this any more.
    bool pause(int time) const {
        pollfd given_up = {give_up_, POLLIN, 0};
        return ::poll(&given_up, 1, time) == 0;
    }

    bool start(int64_t end) {
        do {
            const Attempt attempt = try_all();
            if (attempt != Attempt::kNotHere) {
                return attempt == Attempt::kStarted;
            }
        } while (milliseconds() < end && pause(kLook));
        return failure_->because(
            "process %d does not come to a place where this can be done: it is in C code, or does "
            "not run Python code",
            process_);
    }

    Attempt try_all() {
        const std::vector<pid_t> threads = threads_of(process_);
        std::vector<Wait> waits;
        waits.reserve(threads.size());
        for (const pid_t thread : threads) {
            waits.push_back(wait_of(process_, thread));
        }
        if (threads.empty()) {
            failure_->because("process %d has ended", process_);
            return Attempt::kFailed;
        }
        pause(kSameWait);
        for (size_t i = 0; i < threads.size(); ++i) {
            if (is_claimed()) {
                return Attempt::kStarted;
            }
            if (is_plain_wait(waits[i].call) && waits[i] == wait_of(process_, threads[i])) {
                const Attempt attempt = start_from(threads[i], waits[i]);
                if (attempt != Attempt::kNotHere) {
                    return attempt;
                }
            }
            // Before a look at threads that may be nobody's but some library's.
            if (i == 0 && !is_queued_) {
                const Attempt attempt = queue();
                if (attempt != Attempt::kNotHere) {
                    return attempt;
                }
            }
        }
        return is_claimed() ? Attempt::kStarted : Attempt::kNotHere;
    }

    // From a thread that waits.
    Attempt start_from(pid_t thread, const Wait& wait) {
        Tracee tracee(process_, thread);
        Failure failure;
        if (!tracee.hold(thread == process_ ? failure_ : &failure)) {
            return thread == process_ ? Attempt::kFailed : Attempt::kNotHere;
        }
        if (!tracee.is_in(wait) || holds_interpreter_lock(memory_, interpreter_, tracee.ident())) {
            return Attempt::kNotHere;
        }
        int64_t is_started = 0;
        if (!prepare(&tracee) ||
            !tracee.run(block_ + code_.start, stack(), data(), &is_started, failure_)) {
            return Attempt::kFailed;
        }
        return is_started != 0 ? Attempt::kStarted : Attempt::kNotHere;
    }

    // By the interpreter's main thread, when it gets to it.
    Attempt queue() {
        {
            Tracee tracee(process_, process_);
            if (!tracee.hold(failure_)) {
                return Attempt::kFailed;
            }
            if (!tracee.is_divertible(memory_)) {
                return Attempt::kNotHere;
            }
            if (!prepare(&tracee)) {
                return Attempt::kFailed;
            }
            const Address users = data() + offsetof(BlockData, users);
            int64_t result = -1;
            if (!memory_.write(users, uint32_t{2}) ||
                !tracee.run(block_ + code_.queue, stack(), data(), &result, failure_)) {
                return Attempt::kFailed;
            }
            if (static_cast<int32_t>(result) != 0) {
                memory_.write(users, uint32_t{1});
                return Attempt::kNotHere;
            }
            is_queued_ = true;
        }
        const int64_t end = milliseconds() + kPendingPatience;
        while (!is_claimed() && milliseconds() < end && pause(kLook)) {
        }
        return is_claimed() ? Attempt::kStarted : Attempt::kNotHere;
    }

    // The block is there, and an interpreter at work.
    bool prepare(Tracee* tracee) {
        int64_t is_there = 0;
        if (block_ == 0 && !make_block(tracee)) {
            return false;
        }
        if (!tracee->run(block_ + code_.check_interpreter, stack(), data(), &is_there, failure_)) {
            return false;
        }
        return static_cast<int32_t>(is_there) != 0 ||
               failure_->because("the interpreter of process %d has not begun, or is ending",
                                 process_);
    }

    Address stack() const { return block_ + kBlockSize; }

    bool make_block(Tracee* tracee) {
        instruction_ = find_system_call(tracee->registers());
        if (instruction_ == 0) {
            return failure_->because("process %d has no code that calls the system", process_);
        }
        int64_t block = 0;
        if (!tracee->call_system(
                instruction_, SYS_mmap,
                {0, kBlockSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, ~0ULL, 0},
                &block, failure_)) {
            return false;
        }
        if (block < 0 && block > -static_cast<int64_t>(kPageSize)) {
            return failure_->because("process %d is given no more memory: %s", process_,
                                     std::strerror(static_cast<int>(-block)));
        }
        block_ = static_cast<Address>(block);
        int64_t error = 0;
        const bool is_made =
            fill_block() &&
            tracee->call_system(instruction_, SYS_mprotect,
                                {block_, kPageSize, PROT_READ | PROT_EXEC}, &error, failure_);
        if (is_made && error == 0) {
            return true;
        }
        remove_block(tracee);
        return failure_->because("the system lets nothing be loaded into process %d: %s", process_,
                                 std::strerror(static_cast<int>(-error)));
    }

    bool fill_block() {
        const auto contents = std::make_unique<BlockData>();
        contents->interpreter = interpreter_;
        contents->block = block_;
        contents->users = 1;
        std::strncpy(contents->text, text_, sizeof contents->text - 1);
        return memory_.write(block_, code_.begin, code_.size) && memory_.write(data(), *contents);
    }

    void remove_block(Tracee* tracee) {
        int64_t ignored = 0;
        tracee->call_system(instruction_, SYS_munmap, {block_, kBlockSize}, &ignored, failure_);
        block_ = 0;
    }

    // The address of an instruction that calls the system, anywhere in the process.
    Address find_system_call(const user_regs_struct& registers) const {
        unsigned char code[sizeof kSystemCall];
        const Address before = registers.rip - sizeof kSystemCall;
        if (memory_.read(before, &code) && std::equal(code, code + sizeof code, kSystemCall)) {
            return before;
        }
        std::vector<unsigned char> piece(kSearchedAtOnce);
        for (const Mapping& mapping : mappings_of(process_)) {
            if (!mapping.is_executable) {
                continue;
            }
            for (Address at = mapping.begin; at < mapping.end; at += piece.size()) {
                const size_t size = std::min<uint64_t>(piece.size(), mapping.end - at);
                const auto end = piece.begin() + static_cast<ptrdiff_t>(size);
                if (!memory_.read(at, piece.data(), size)) {
                    break;
                }
                const auto found =
                    std::search(piece.begin(), end, kSystemCall, kSystemCall + sizeof kSystemCall);
                if (found != end) {
                    return at + static_cast<Address>(found - piece.begin());
                }
            }
        }
        return 0;
    }

    bool await_thread() {
        uint32_t started = kNotYet;
        const int64_t end = milliseconds() + kStartPatience;
        while (milliseconds() < end &&
               memory_.read(data() + offsetof(BlockData, started), &started)) {
            if (started == kNoThread) {
                return failure_->because("process %d can start no more threads", process_);
            }
            if (started == kStarted) {
                return true;
            }
            pause(kLook);
        }
        return failure_->because("process %d has ended, or does not go on", process_);
    }

    // Nobody is to start the thread any more.
    void cancel() {
        if (block_ == 0) {
            return;
        }
        Tracee tracee(process_, process_);
        Failure ignored;
        if (!tracee.hold(&ignored) || is_claimed()) {
            return;
        }
        memory_.write(data() + offsetof(BlockData, claimed), uint32_t{1});
        if (is_queued_) {
            // Then it goes with the interpreter's next look at its pending calls.
            memory_.write(data() + offsetof(BlockData, users), uint32_t{1});
        } else {
            remove_block(&tracee);
        }
    }

    pid_t process_;
    const char* text_;
    int give_up_;
    Failure* failure_;
    TargetMemory memory_;
    Interpreter interpreter_ = {};
    BlockCode code_ = block_code();
    Address block_ = 0;
    Address instruction_ = 0;
    bool is_queued_ = false;
};

}  // namespace

bool load(pid_t process, const char* text, double seconds, int give_up, Failure* failure) {
    Loading loading(process, text, give_up, failure);
    return loading.load(seconds);
}

}  // namespace morvik
