"""The interpreter's main thread, for a server that begins in another one."""

from __future__ import absolute_import

import sys

import _sorrel

from sorrel.common.originals import thread


def be_main():
    """Sees to it that `threading` knows it: that takes whoever imports it first for the main one.

    To be called before anything else imports it.
    """
    is_known = 'threading' in sys.modules
    import threading
    own, first = thread.get_ident(), ident()
    main = threading._active.get(own)
    if not is_known and first != own and main is not None:
        main._Thread__ident = first
        threading._active[first] = main
        del threading._active[own]


def ident():
    return _sorrel.thread_idents()[0]
