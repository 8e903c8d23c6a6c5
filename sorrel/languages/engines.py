"""Template engines that are known: whatever program imports one has its templates shown.

The module of an engine's hook is imported when the engine has been. Its function `hook(engine)` is
given the engine's module, which may still be in the midst of its import; it answers with the hook,
or with None for as long as it finds too little there.
"""

from __future__ import absolute_import

import sys

from sorrel.common import import_lock
from sorrel.languages import sublanguages

# The engine's module, the one of its hook, and what clients say false about to have none.
ENGINES = (
    ('jinja2', 'sorrel.languages.jinja_templates', 'jinja'),
    ('chameleon.template', 'sorrel.languages.chameleon_templates', 'chameleon'),
    ('zope.tal.talinterpreter', 'sorrel.languages.zope_templates', 'zope'),
)

_waiting = dict((engine[0], engine) for engine in ENGINES)
_turned_off = set()


def turn_off(names):
    """From now on no hook is made for these, which are of the third column."""
    _turned_off.update(names)


def turned_off():
    return sorted(_turned_off)


def names():
    return [name for _, _, name in ENGINES]


def look():
    """Makes the hooks of engines that the program has imported since the last call.

    In a thread of the program's. Raises what making one has raised; it is not tried again.
    """
    for module in list(_waiting):
        engine = sys.modules.get(module)
        known = engine is not None and _waiting.get(module)
        # One thread alone gets it.
        if known and known[2] not in _turned_off and _waiting.pop(module, None) is not None:
            _make(engine, known)


def _make(engine, known):
    try:
        hook = import_lock.call(_hook_of, known[1], engine)
    except import_lock.Locked:
        hook = None
    if hook is None:
        _waiting[known[0]] = known
    else:
        sublanguages.register_for_engine(hook)


def _hook_of(name, engine):
    import_lock.default_import(name)
    return sys.modules[name].hook(engine)
