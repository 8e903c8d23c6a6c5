"""Tracing in all threads of the process at once.

A trace function is set by its thread alone, and one that runs in old frames or waits in C would
never come to it. The core has set its own in the calling thread: the others are given the same,
in the interpreter's record of them.
"""

try:
    import ctypes
except ImportError:
    ctypes = None  # Threads are then traced from their next import on.


if ctypes is not None:
    class _Thread(ctypes.Structure):
        """How a PyThreadState begins, in 2.6 as in 2.7."""

        _fields_ = [
            ('next', ctypes.c_void_p), ('interp', ctypes.c_void_p), ('frame', ctypes.c_void_p),
            ('recursion_depth', ctypes.c_int), ('tracing', ctypes.c_int),
            ('use_tracing', ctypes.c_int),
            ('c_profilefunc', ctypes.c_void_p), ('c_tracefunc', ctypes.c_void_p),
            ('c_profileobj', ctypes.c_void_p), ('c_traceobj', ctypes.c_void_p)]

    def _function(name, *argument_types):
        function = getattr(ctypes.pythonapi, name)
        function.argtypes = argument_types
        function.restype = ctypes.POINTER(_Thread)
        return function

    _current = _function('PyThreadState_Get')
    _head = _function('PyInterpreterState_ThreadHead', ctypes.c_void_p)
    _next = _function('PyThreadState_Next', ctypes.POINTER(_Thread))
    _keep = ctypes.pythonapi.Py_IncRef
    _keep.argtypes = [ctypes.c_void_p]
    _keep.restype = None


def trace():
    """Gives the calling thread's trace function to all threads that have none."""
    if ctypes is None:
        return
    try:
        traced_threads = ctypes.c_int.in_dll(ctypes.pythonapi, '_Py_TracingPossible')
    except ValueError:
        return  # Not to be reached on this platform: as without ctypes.
    model = _current().contents
    thread = _head(model.interp)
    while thread:
        record = thread.contents
        if not record.c_tracefunc and model.c_tracefunc:
            _keep(model.c_traceobj)
            record.c_traceobj = model.c_traceobj
            record.c_tracefunc = model.c_tracefunc
            record.use_tracing = 1
            traced_threads.value += 1
        thread = _next(thread)
