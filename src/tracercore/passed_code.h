// Code that the debug server has named for its steps to go through: a step that passes code neither
// ends at its lines nor at its returns, but does in what it calls.
#ifndef MORVIK_TRACERCORE_PASSED_CODE_H
#define MORVIK_TRACERCORE_PASSED_CODE_H

#include "host/python.h"

namespace morvik {

bool is_code_to_pass(const PyCodeObject* code);

// False where it cannot be: there is no memory for it, or nothing tells of the end of such code.
// Sets no error. May run Python code.
bool pass_code(PyCodeObject* code);

// Not any more, be it since another code object may get its address.
void pass_code_no_more(const PyCodeObject* code);
void pass_no_code();

}  // namespace morvik

#endif
