"""What a client's request to disconnect means for the program."""

from __future__ import absolute_import


def means_end(arguments, is_launched):
    """Whether the program ends. is_launched: whether the client has launched it."""
    # Who has only attached wants to come again, to the same program.
    if arguments.get('restart') and not is_launched:
        return False
    ends = arguments.get('terminateDebuggee')
    return is_launched if ends is None else bool(ends)
