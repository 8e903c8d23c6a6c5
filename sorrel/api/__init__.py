"""What the functions of the package do: the debug server for programs that ask for it."""


class Error(Exception):
    """What was asked for cannot be done; the text says why, in one line."""
