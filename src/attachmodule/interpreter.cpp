#include "attachmodule/interpreter.h"

#include <elf.h>

#include <cstring>
#include <string>
#include <unordered_map>

#include "host/python.h"

namespace morvik {

namespace {

// What no sound file exceeds.
constexpr size_t kMostHeaders = 64;
constexpr size_t kMostSymbols = 1 << 20;
constexpr size_t kMostNames = 64 << 20;
constexpr size_t kMostEntries = 1024;

using Symbols = std::unordered_map<std::string, Address>;

// One program or library as the loader has mapped it.
struct Object {
    Address bias = 0;  // from the file's addresses to those in memory
    Address symbols = 0;
    Address names = 0;
    uint64_t names_size = 0;
    Address hash = 0;
    Address gnu_hash = 0;
};

// The loader has made addresses of most of these, but not in every object.
Address in_memory(const Object& object, uint64_t value) {
    return value < object.bias ? value + object.bias : value;
}

bool read_dynamic(const TargetMemory& memory, Address at, size_t size, Object* object) {
    std::vector<Elf64_Dyn> entries(size / sizeof(Elf64_Dyn));
    if (entries.empty() || entries.size() > kMostEntries ||
        !memory.read(at, entries.data(), entries.size() * sizeof(Elf64_Dyn))) {
        return false;
    }
    for (const Elf64_Dyn& entry : entries) {
        switch (entry.d_tag) {
            case DT_SYMTAB:
                object->symbols = in_memory(*object, entry.d_un.d_ptr);
                break;
            case DT_STRTAB:
                object->names = in_memory(*object, entry.d_un.d_ptr);
                break;
            case DT_STRSZ:
                object->names_size = entry.d_un.d_val;
                break;
            case DT_HASH:
                object->hash = in_memory(*object, entry.d_un.d_ptr);
                break;
            case DT_GNU_HASH:
                object->gnu_hash = in_memory(*object, entry.d_un.d_ptr);
                break;
            default:
                break;
        }
    }
    return object->symbols != 0 && object->names != 0 && object->names_size <= kMostNames;
}

bool read_object(const TargetMemory& memory, Address base, Object* object) {
    Elf64_Ehdr header;
    if (!memory.read(base, &header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_machine != EM_X86_64 ||
        header.e_phentsize != sizeof(Elf64_Phdr) || header.e_phnum > kMostHeaders) {
        return false;
    }
    std::vector<Elf64_Phdr> parts(header.e_phnum);
    if (parts.empty() ||
        !memory.read(base + header.e_phoff, parts.data(), parts.size() * sizeof(Elf64_Phdr))) {
        return false;
    }
    const Elf64_Phdr* dynamic = nullptr;
    bool has_bias = false;
    for (const Elf64_Phdr& part : parts) {
        if (part.p_type == PT_LOAD && !has_bias) {
            object->bias = base - (part.p_vaddr - part.p_offset);
            has_bias = true;
        } else if (part.p_type == PT_DYNAMIC) {
            dynamic = &part;
        }
    }
    return has_bias && dynamic != nullptr &&
           read_dynamic(memory, object->bias + dynamic->p_vaddr, dynamic->p_memsz, object);
}

// How many symbols there are, 0 if that cannot be found out: no table tells it directly.
size_t count_symbols(const TargetMemory& memory, const Object& object) {
    struct {
        uint32_t buckets, chains;
    } plain;
    if (object.hash != 0) {
        return memory.read(object.hash, &plain) ? plain.chains : 0;
    }
    struct {
        uint32_t buckets, first, bloom_words, bloom_shift;
    } table;
    if (object.gnu_hash == 0 || !memory.read(object.gnu_hash, &table) ||
        table.buckets > kMostSymbols || table.bloom_words > kMostSymbols) {
        return 0;
    }
    const Address buckets_at = object.gnu_hash + sizeof table + table.bloom_words * 8ULL;
    std::vector<uint32_t> buckets(table.buckets);
    if (!memory.read(buckets_at, buckets.data(), buckets.size() * 4)) {
        return 0;
    }
    uint32_t last = 0;
    for (const uint32_t bucket : buckets) {
        last = bucket > last ? bucket : last;
    }
    // The chain of the last bucket ends with the last symbol, which is marked.
    const Address chains_at = buckets_at + table.buckets * 4ULL;
    uint32_t mark = 0;
    while (last >= table.first && last < kMostSymbols) {
        if (!memory.read(chains_at + (last - table.first) * 4ULL, &mark)) {
            return 0;
        }
        ++last;
        if ((mark & 1) != 0) {
            return last;
        }
    }
    return 0;
}

// The functions and variables that the object offers to others.
bool read_symbols(const TargetMemory& memory, const Object& object, Symbols* found) {
    const size_t count = count_symbols(memory, object);
    if (count == 0 || count > kMostSymbols) {
        return false;
    }
    std::vector<Elf64_Sym> symbols(count);
    std::string names(object.names_size, '\0');
    if (!memory.read(object.symbols, symbols.data(), count * sizeof(Elf64_Sym)) ||
        !memory.read(object.names, &names[0], names.size())) {
        return false;
    }
    for (const Elf64_Sym& symbol : symbols) {
        const unsigned kind = ELF64_ST_TYPE(symbol.st_info);
        if (symbol.st_shndx != SHN_UNDEF && symbol.st_name < names.size() &&
            (kind == STT_FUNC || kind == STT_OBJECT)) {
            found->emplace(names.c_str() + symbol.st_name, object.bias + symbol.st_value);
        }
    }
    return true;
}

// What the interpreter is, by what it exports.
std::string described(const Symbols& symbols) {
    const auto has = [&symbols](const char* name) { return symbols.count(name) != 0; };
    if (has("PyModule_Create2") || has("PyModule_Create2TraceRefs")) {
        return "Python 3";
    }
    if (!has("PyByteArray_Type")) {
        return "a Python before 2.6";
    }
    std::string text = has("PyCapsule_New") ? "CPython 2.7" : "CPython 2.6";
    text += has("Py_InitModule4TraceRefs_64") ? ", debug" : ", release";
    text += has("PyUnicodeUCS4_AsUTF8String") ? ", UCS-4" : ", UCS-2";
    return text;
}

// The same of the interpreter that this module is built for.
std::string described_own() {
    std::string text = PY_VERSION_HEX >= 0x02070000 ? "CPython 2.7" : "CPython 2.6";
#ifdef Py_TRACE_REFS
    text += ", debug";
#else
    text += ", release";
#endif
    text += Py_UNICODE_SIZE == 4 ? ", UCS-4" : ", UCS-2";
    return text;
}

bool find_all(pid_t process, const Symbols& interpreter, const Symbols& all, Interpreter* found,
              Failure* failure) {
    const struct {
        const Symbols& symbols;
        const char* name;
        Address* address;
    } wanted[] = {
        {interpreter, "Py_AddPendingCall", &found->add_pending_call},
        {interpreter, "PyEval_InitThreads", &found->eval_init_threads},
        {interpreter, "PyEval_ThreadsInitialized", &found->eval_threads_initialized},
        {interpreter, "PyEval_GetBuiltins", &found->eval_builtins},
        {interpreter, "PyEval_SaveThread", &found->eval_save_thread},
        {interpreter, "_Py_Ticker", &found->ticker},
        {interpreter, "PyGILState_Ensure", &found->gil_ensure},
        {interpreter, "PyGILState_Release", &found->gil_release},
        {interpreter, "PyGILState_GetThisThreadState", &found->gil_this_thread_state},
        {interpreter, "PyImport_GetModuleDict", &found->import_module_dict},
        {interpreter, "PyImport_ImportModuleNoBlock", &found->import_no_block},
        {interpreter, "Py_IsInitialized", &found->is_initialized},
        {interpreter, "Py_BuildValue", &found->build_value},
        {interpreter, "Py_DecRef", &found->dec_ref},
        {interpreter, "PyErr_Clear", &found->err_clear},
        {interpreter, "PyRun_StringFlags", &found->run_string},
        {interpreter, "PyThread_start_new_thread", &found->start_new_thread},
        {interpreter, "_PyThreadState_Current", &found->current_thread_state},
        {all, "munmap", &found->munmap},
        {all, "usleep", &found->usleep},
    };
    for (const auto& want : wanted) {
        const auto symbol = want.symbols.find(want.name);
        if (symbol == want.symbols.end()) {
            return failure->because("process %d has no function %s that others can call", process,
                                    want.name);
        }
        *want.address = symbol->second;
    }
    return true;
}

}  // namespace

bool find_interpreter(pid_t process, const TargetMemory& memory, Interpreter* found,
                      Failure* failure) {
    Symbols interpreter;
    Symbols all;
    bool has_names_of_it = false;
    for (const Mapping& mapping : mappings_of(process)) {
        Object object;
        if (mapping.offset != 0 || mapping.path.empty() || mapping.path[0] != '/') {
            continue;
        }
        has_names_of_it = has_names_of_it || mapping.path.find("python") != std::string::npos;
        Symbols symbols;
        if (!read_object(memory, mapping.begin, &object) ||
            !read_symbols(memory, object, &symbols)) {
            continue;
        }
        // As for the loader, the first one that has them counts.
        if (interpreter.empty() && symbols.count("Py_IsInitialized") != 0) {
            interpreter = symbols;
        }
        all.insert(symbols.begin(), symbols.end());
    }
    if (interpreter.empty()) {
        return failure->because(
            has_names_of_it
                ? "the interpreter of process %d cannot be found: its symbols are stripped, or "
                  "not exported"
                : "process %d runs no Python, or it does not export the interpreter's symbols",
            process);
    }
    const std::string theirs = described(interpreter);
    const std::string ours = described_own();
    if (theirs != ours) {
        return failure->because("process %d runs %s, and this is built for %s", process,
                                theirs.c_str(), ours.c_str());
    }
    return find_all(process, interpreter, all, found, failure);
}

bool holds_interpreter_lock(const TargetMemory& memory, const Interpreter& interpreter,
                            Address ident) {
    Address thread = 0;
    Address holder = 0;
    if (!memory.read(interpreter.current_thread_state, &thread)) {
        return true;
    }
    if (thread == 0) {
        return false;
    }
    return !memory.read(thread + offsetof(PyThreadState, thread_id), &holder) || holder == ident;
}

}  // namespace morvik
