"""Processes that the program forks, which are none of the server's."""

from __future__ import absolute_import

import threading


def call_in_children(function):
    """Calls it, from now on, in each process that the program forks, before that goes on."""
    after_fork = threading._after_fork

    def call():
        after_fork()
        function()
    # What the interpreter calls for itself.
    threading._after_fork = call
