// The bytecode of the interpreters that exception analysis can read. Both tables are always
// there; the headers that the build sees choose the one for code that runs here.
#ifndef MORVIK_HOST_OPCODES_H
#define MORVIK_HOST_OPCODES_H

#include "host/python.h"

namespace morvik {

struct OpcodeTable {
    int have_argument;  // opcodes from here on carry a 16-bit argument
    int pop_top;
    int dup_top;
    int for_iter;
    int load_const;
    int load_name;
    int build_tuple;
    int load_attr;
    int compare_op;
    int jump_if_false;  // follows the comparison of an except clause
    int load_global;
    int setup_loop;
    int setup_except;  // also the type of the block that it sets up
    int load_fast;
    int extended_arg;
    // Whether jump_if_false names its target by its offset in the code and drops the tested value
    // itself. Otherwise the target is relative to the next instruction and drops the value there.
    bool jump_is_absolute;
};

// The argument of compare_op for an exception match, in both.
inline constexpr int kCompareExceptionMatch = 10;

inline constexpr OpcodeTable kOpcodes26 = {90,  1,   4,   93,  100, 101, 102, 105,
                                           106, 111, 116, 120, 121, 124, 143, false};
inline constexpr OpcodeTable kOpcodes27 = {90,  1,   4,   93,  100, 101, 102, 106,
                                           107, 114, 116, 120, 121, 124, 145, true};

#if PY_VERSION_HEX < 0x02070000
inline constexpr const OpcodeTable& kHostOpcodes = kOpcodes26;
#else
inline constexpr const OpcodeTable& kHostOpcodes = kOpcodes27;
#endif

}  // namespace morvik

#endif
