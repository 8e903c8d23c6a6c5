"""Strings of the program, which may be in any encoding, as the protocol can carry them."""


def text(value):
    """A string as unicode; what is not UTF-8 in it is replaced."""
    if isinstance(value, str):
        return value.decode('utf-8', 'replace')
    return unicode(value)
