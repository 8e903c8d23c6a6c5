"""Sources that requests name. What the arguments are is not known yet."""

from __future__ import absolute_import


def path(arguments):
    """The path of the source that a request is about; None for none."""
    return _source(arguments).get('path')


def reference(arguments):
    """The same of its number."""
    return _source(arguments).get('sourceReference')


def by_name(arguments):
    """The arguments as another process is to read them, to which a reference means nothing."""
    source = _source(arguments)
    if not source.get('sourceReference'):
        return arguments
    named = source.get('path')
    return dict(arguments, source={'path': source.get('name') if named is None else named})


def _source(arguments):
    source = arguments.get('source') if isinstance(arguments, dict) else None
    return source if isinstance(source, dict) else {}
