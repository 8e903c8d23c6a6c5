// Which threads are debugged, and when the debug server gets its idle call.
#ifndef MORVIK_TRACERCORE_POLICY_H
#define MORVIK_TRACERCORE_POLICY_H

namespace morvik {

// Nonzero when the thread with this ident is debugged: what the server's policy callback said the
// first time it was asked. errno is kept; sets no error. Runs Python code.
long thread_policy(long ident);

// Asks the policy callback anew the next time.
void forget_thread_policy(long ident);

// Counts an event and calls idle_cb when one is due: at most once per second of the wall clock.
// -1 when tracing is off, before or after the call; else 0. Sets no error. Runs Python code.
int call_idle();

}  // namespace morvik

#endif
