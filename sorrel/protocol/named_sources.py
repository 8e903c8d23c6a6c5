"""Sources that requests name. What the arguments are is not known yet."""

from __future__ import absolute_import


def path(arguments):
    """The path of the source that a request is about; None for none."""
    source = arguments.get('source') if isinstance(arguments, dict) else None
    return source.get('path') if isinstance(source, dict) else None


def by_name(arguments):
    """The arguments as another process is to read them, to which a reference means nothing."""
    source = arguments.get('source') if isinstance(arguments, dict) else None
    if not isinstance(source, dict) or not source.get('sourceReference'):
        return arguments
    named = source.get('path')
    return dict(arguments, source={'path': source.get('name') if named is None else named})
