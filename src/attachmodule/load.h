// Has another process, which knows nothing of this, run a text of Python in a thread of its own.
#ifndef MORVIK_ATTACHMODULE_LOAD_H
#define MORVIK_ATTACHMODULE_LOAD_H

#include "attachmodule/target.h"

namespace morvik {

// The thread is started where the interpreter lock may be taken: by the interpreter itself,
// between two instructions of Python code of its main thread, or from a thread that waits in a
// system call without the lock. Nothing but that start is done in a thread of the program's.
//
// The text is run with `modules`, those of the interpreter, `imp` among them, and without the
// interpreter lock being given away early on; the import lock is not waited for. While the text
// raises exceptions it is run again, for ten seconds.
//
// Returns when the thread has been started, or with a failure and the process as it was: after so
// many seconds, when the process allows no such start, or when `give_up` (a descriptor) can be
// read or is hung up. The caller must not be ended meanwhile, by signals or otherwise.
bool load(pid_t process, const char* text, double seconds, int give_up, Failure* failure);

}  // namespace morvik

#endif
