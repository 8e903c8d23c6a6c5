"""Processes that the program forks."""

import threading


def call_in_children(function):
    """Calls the function in each of them, from now on, before the program runs there."""
    after_fork = threading._after_fork

    def call():
        after_fork()
        function()
    # What the interpreter calls for itself.
    threading._after_fork = call
