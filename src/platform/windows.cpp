// The system's headers want the sockets first.
#include <winsock2.h>

#include <windows.h>

#include <io.h>
#include <process.h>
#include <shlobj.h>

#include <csignal>
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

template <class... Args>
void write_log(PathLog log, const char* format, Args... args) {
    if (log != nullptr) {
        log(format, args...);
    }
}

template <class Function>
Function function_at(FARPROC address) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

// The interpreter's library in this process, or nullptr. With `must_free` set the handle is one
// more use of the library, to be given back.
HMODULE interpreter_library(const void* anchor, void* (*recorded_handle)(), bool* must_free) {
    using FindByAddress = BOOL(WINAPI*)(DWORD flags, LPCWSTR address, HMODULE * found);
    *must_free = false;
    // Found by its name, as old systems have no such function.
    const auto find_by_address = function_at<FindByAddress>(
        GetProcAddress(GetModuleHandleA("kernel32"), "GetModuleHandleExW"));
    if (find_by_address != nullptr) {
        HMODULE found = nullptr;
        *must_free = find_by_address(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                                     static_cast<LPCWSTR>(anchor), &found) != 0;
        return *must_free ? found : nullptr;
    }
    const auto recorded = static_cast<HMODULE>(recorded_handle());
    if (recorded != nullptr && GetProcAddress(recorded, "PyObject_GetAttr") != nullptr) {
        return recorded;
    }
    return GetModuleHandleA("Python26");
}

// The interpreter lock, with which all path functions are called, protects these too.
wchar_t wide_buffer[kMaxPath + 1];
char narrow_buffer[kMaxPath + 1];

// The name that a file system has for the last component of a path, its short one if asked for and
// there; nullptr when there is no such file. Valid until the next call.
const char* found_name_wide(const char* path, bool is_short) {
    // Lifts the usual limit of a path's length.
    constexpr char kPrefix[] = "\\\\?\\";
    constexpr size_t kPrefixLength = sizeof(kPrefix) - 1;
    const size_t length = strlen(path);
    if (kPrefixLength + length > kMaxPath) {
        return nullptr;
    }
    memcpy(narrow_buffer, kPrefix, kPrefixLength);
    memcpy(narrow_buffer + kPrefixLength, path, length + 1);
    WIN32_FIND_DATAW found;
    if (MultiByteToWideChar(GetACP(), 0, narrow_buffer, -1, wide_buffer, kMaxPath + 1) == 0) {
        return nullptr;
    }
    const HANDLE search = FindFirstFileW(wide_buffer, &found);
    if (search == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    FindClose(search);
    const bool has_short = found.cAlternateFileName[0] != L'\0';
    const wchar_t* const name = is_short && has_short ? found.cAlternateFileName : found.cFileName;
    return WideCharToMultiByte(0, 0, name, -1, narrow_buffer, kMaxPath + 1, nullptr, nullptr) != 0
               ? narrow_buffer
               : nullptr;
}

const char* found_name_narrow(const char* path, bool is_short) {
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA(path, &found);
    if (search == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    FindClose(search);
    const bool has_short = found.cAlternateFileName[0] != '\0';
    strcpy(narrow_buffer, is_short && has_short ? found.cAlternateFileName : found.cFileName);
    return narrow_buffer;
}

// Adds a separator and a name to a path, if there is room.
bool append_name(char* path, const char* name) {
    const size_t length = strlen(path);
    const size_t name_length = strlen(name);
    if (length + 1 + name_length > kMaxPath) {
        return false;
    }
    path[length] = '\\';
    memcpy(path + length + 1, name, name_length + 1);
    return true;
}

// The path with every component under the name that the file system has for it.
bool canonical_form(const char* path, char* out, bool is_short, PathLog log) {
    *out = '\0';
    const OwnedPath copy(_strdup(path));
    if (!copy) {
        return false;
    }
    for (char* at = strchr(copy.get(), '/'); at != nullptr; at = strchr(at, '/')) {
        *at = '\\';
    }
    size_t length = strlen(copy.get());
    while (length > 0 && copy.get()[length - 1] == '\\') {
        copy.get()[--length] = '\0';
    }
    write_log(log, "CANONICAL %s\n", copy.get());
    char* part = copy.get();
    if (length >= 2 && part[1] == ':') {
        const char drive[] = {part[0], part[1], '\0'};
        strcpy(out, drive);
        write_log(log, "DRIVE LETTER %s, RESULT: %s\n", drive, out);
        part = strchr(part, '\\');
        if (part == nullptr) {
            return append_name(out, "");
        }
        ++part;
    }
    const auto found_name = wide_file_queries() != 0 ? found_name_wide : found_name_narrow;
    for (;;) {
        char* const end = part + strcspn(part, "\\");
        const char after = *end;
        *end = '\0';
        const char* const name = found_name(copy.get(), is_short);
        if (name == nullptr || !append_name(out, name)) {
            return false;
        }
        write_log(log, is_short ? "Short part: %s\n" : "Long part: %s\n", copy.get());
        write_log(log, "Current result: %s\n", out);
        if (after == '\0') {
            return true;
        }
        *end = after;
        part = end + 1;
    }
}

char* new_utf8(const wchar_t* text) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    char* const result = size > 0 ? static_cast<char*>(malloc(size)) : nullptr;
    if (result != nullptr) {
        WideCharToMultiByte(CP_UTF8, 0, text, -1, result, size, nullptr, nullptr);
    }
    return result;
}

// The thread that waits for a stream's next character. It cannot be called back: it outlives a
// wait that ends without it, and the next wait takes it up. nullptr when there is none.
HANDLE reader = nullptr;

unsigned __stdcall read_and_put_back(void* argument) {
    auto* const stream = static_cast<FILE*>(argument);
    // Whoever read between the two would get the character too late.
    _lock_file(stream);
    const int character = getc(stream);
    ungetc(character, stream);
    _unlock_file(stream);
    return static_cast<unsigned>(character);
}

StreamWait wait_for_reader(DWORD milliseconds) {
    const DWORD outcome = WaitForSingleObject(reader, milliseconds);
    if (outcome == WAIT_OBJECT_0) {
        CloseHandle(reader);
        reader = nullptr;
        return StreamWait::kInput;
    }
    return outcome == WAIT_FAILED ? StreamWait::kFailed : StreamWait::kTimeOut;
}

struct Beats {
    HANDLE ended;  // its thread's own; set when it is not wanted any more
    void (*beat)();
    DWORD milliseconds;
};

HANDLE beats_ended = nullptr;

unsigned __stdcall run_beats(void* argument) {
    auto* const beats = static_cast<Beats*>(argument);
    while (WaitForSingleObject(beats->ended, beats->milliseconds) == WAIT_TIMEOUT) {
        beats->beat();
    }
    CloseHandle(beats->ended);
    free(beats);
    return 0;
}

}  // namespace

void call_in_forked_child(void (* /*function*/)()) {
    // Processes do not fork here.
}

bool can_hold_forks() { return true; }

void hold_forks() {}

void let_forks() {}

bool guard_interrupts(const volatile int32_t* /*front*/) { return false; }

void let_calls_go_on(bool /*on*/) {}

void end_call_in(long /*ident*/) {}

bool watch_interrupts(void (* /*at_signal*/)(), void (* /*after*/)()) { return false; }

void send_signal_to_self(int number) { raise(number); }

bool set_foreground_group(int /*terminal*/, int /*group*/) { return false; }

bool begin_beats(void (*beat)(), int milliseconds) {
    if (beats_ended != nullptr) {
        return true;
    }
    auto* const beats = static_cast<Beats*>(malloc(sizeof(Beats)));
    const HANDLE ended = beats != nullptr ? CreateEventA(nullptr, TRUE, FALSE, nullptr) : nullptr;
    const HANDLE process = GetCurrentProcess();
    HANDLE own = nullptr;
    if (ended != nullptr &&
        DuplicateHandle(process, ended, process, &own, 0, FALSE, DUPLICATE_SAME_ACCESS) != 0) {
        *beats = {own, beat, static_cast<DWORD>(milliseconds)};
        const uintptr_t thread = _beginthreadex(nullptr, 0, run_beats, beats, 0, nullptr);
        if (thread != 0) {
            CloseHandle(reinterpret_cast<HANDLE>(thread));
            beats_ended = ended;
            return true;
        }
        CloseHandle(own);
    }
    if (ended != nullptr) {
        CloseHandle(ended);
    }
    free(beats);
    return false;
}

void end_beats() {
    if (beats_ended != nullptr) {
        SetEvent(beats_ended);
        CloseHandle(beats_ended);
        beats_ended = nullptr;
    }
}

void forget_beats() {}

int64_t wall_clock_seconds() { return _time64(nullptr); }

void* interpreter_symbol(const char* name, const void* anchor, void* (*recorded_handle)()) {
    bool must_free = false;
    const HMODULE library = interpreter_library(anchor, recorded_handle, &must_free);
    if (library == nullptr) {
        return nullptr;
    }
    SetLastError(0);
    void* const address = reinterpret_cast<void*>(GetProcAddress(library, name));
    if (must_free) {
        FreeLibrary(library);
    }
    return address;
}

int wide_file_queries() {
    OSVERSIONINFOA version = {};
    static_assert(sizeof version == 148, "the record that the system fills");
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExA(&version) != 0 && version.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

char* absolute_path(const char* path) { return _fullpath(nullptr, path, 0); }

bool long_path_name(const char* path, char* out, PathLog log) {
    return canonical_form(path, out, false, log);
}

bool short_path_name(const char* path, char* out, FileIdentity* identity, PathLog log) {
    *identity = {};
    *out = '\0';
    write_log(log, "CHECK1 %s\n", path);
    const DWORD length = GetShortPathNameA(path, out, kMaxPath);
    // A log line's own file work would leave another one.
    const DWORD error = GetLastError();
    write_log(log, "CHECK2 %ld %s\n", static_cast<long>(length), out);
    if (length >= 1 && length <= kMaxPath) {
        return true;
    }
    return error == ERROR_NOT_SUPPORTED && canonical_form(path, out, true, log);
}

bool same_spelling(const char* a, const char* b) { return _stricmp(a, b) == 0; }

bool same_short_name(const char* a, const char* b) { return _stricmp(a, b) == 0; }

void fold_file_name(char* path) { _strlwr(path); }

bool can_read_file(const char* path) {
    constexpr int kRead = 4;
    return _access(path, kRead) == 0;
}

char* user_name() {
    constexpr DWORD kLongest = 255;
    wchar_t name[kLongest + 1] = {};
    DWORD size = kLongest;
    return GetUserNameW(name, &size) != 0 && size > 0 ? new_utf8(name) : nullptr;
}

char* application_data_folder() {
    wchar_t folder[MAX_PATH + 1] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder))) {
        return nullptr;
    }
    folder[MAX_PATH] = L'\0';
    return new_utf8(folder);
}

bool watch_stream(FILE* stream) {
    // An earlier wait's reader that is done has put its character back.
    if (reader != nullptr && wait_for_reader(0) == StreamWait::kFailed) {
        return false;
    }
    if (reader == nullptr) {
        reader = reinterpret_cast<HANDLE>(
            _beginthreadex(nullptr, 0, read_and_put_back, stream, 0, nullptr));
    }
    return reader != nullptr;
}

StreamWait wait_for_stream(FILE* /*stream*/, int milliseconds) {
    return wait_for_reader(static_cast<DWORD>(milliseconds));
}

int stream_buffered_bytes(FILE* stream) { return stream->_cnt; }

bool poll_descriptors(const int* descriptors, int count, bool* readable) {
    static_assert(FD_SETSIZE >= kMaxPolled, "the set holds them all");
    fd_set set;
    FD_ZERO(&set);
    for (int i = 0; i < count; ++i) {
        FD_SET(static_cast<SOCKET>(descriptors[i]), &set);
    }
    timeval no_time = {0, 0};
    // The first argument means nothing here.
    if (select(1, &set, nullptr, nullptr, &no_time) == SOCKET_ERROR) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        readable[i] = FD_ISSET(static_cast<SOCKET>(descriptors[i]), &set) != 0;
    }
    return true;
}

}  // namespace morvik
