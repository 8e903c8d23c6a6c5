// What the program writes to sys.stdout and sys.stderr, caught on its way.
#ifndef MORVIK_SORRELMODULE_REDIRECTION_H
#define MORVIK_SORRELMODULE_REDIRECTION_H

#include "host/ref.h"

namespace morvik {

// Puts streams in the place of sys.stdout and sys.stderr that write to those first, and keep what
// was written: at most `limit` bytes and letters. They have all attributes of what they stand for,
// its class included, and run no Python code of their own: the program's steps and exceptions never
// come by any. A tuple of two functions. The first returns ([(name, text), ...], left_out): what
// was written since it was last called, as bytes or unicode, and how much more. The second ends it:
// what is still in place is taken away, and what the program has kept only writes on. Nothing with
// an error set where memory is short.
Ref begin_redirection(Py_ssize_t limit);

}  // namespace morvik

#endif
