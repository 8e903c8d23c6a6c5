"""Template engines that are known: whatever program imports one has its templates shown.

The module of an engine's hook is imported when the engine has been. Its function `hook(engine)` is
given the engine's module, which may still be in the midst of its import; it answers with the hook,
or with None for as long as it finds too little there: then it is asked again.
"""

from __future__ import absolute_import

import sys

from sorrel.common import import_lock
from sorrel.languages import sublanguages

# The engine's module, the one of its hook, and what clients say false about to have none.
ENGINES = (
    ('jinja2', 'sorrel.languages.jinja_templates', 'jinja'),
    ('chameleon.template', 'sorrel.languages.chameleon_templates', 'chameleon'),
    # From 1.9 on, and before.
    ('django.template.library', 'sorrel.languages.django_templates', 'django'),
    ('django.template.debug', 'sorrel.languages.django_templates', 'django'),
    ('mako.template', 'sorrel.languages.mako_templates', 'mako'),
    ('zope.tal.talinterpreter', 'sorrel.languages.zope_templates', 'zope'),
)

_waiting = dict((engine, (module, name)) for engine, module, name in ENGINES)


def names():
    """Those of the third column."""
    return sorted(set([name for _, _, name in ENGINES]))


def look():
    """Registers the hooks of engines that the program has imported since the last call.

    In a thread of the program's.
    """
    for module in list(_waiting):
        engine = sys.modules.get(module)
        # One thread alone gets it.
        known = engine is not None and _waiting.pop(module, None)
        if known:
            _register(engine, *known)


def _register(engine, module, name):
    sublanguages.register_for_engine(name, lambda: _hook(engine, module))


def _hook(engine, module):
    try:
        import_lock.call(import_lock.default_import, module)
    except import_lock.Locked:
        return None
    return sys.modules[module].hook(engine)
