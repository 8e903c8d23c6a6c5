"""Files of the program as a person names them."""

from __future__ import absolute_import

import os
import sys

from sorrel.common import text_files
from sorrel.inspection import modules
from sorrel.service.breakpoints import Refused


class NoFile(Refused):
    """There is none of this name."""


# Each word of a name may be the last of a module's.
NAME_LIMIT = 1000


def find_file(name):
    """The path of a file: as it is named, in the module search path, or of a loaded module.

    The suffix ".py" may be left out. Raises Refused.
    """
    for wanted in (name, name + '.py'):
        for folder in [''] + [folder for folder in sys.path if isinstance(folder, str)]:
            path = os.path.join(folder, wanted)
            if text_files.is_file(path):
                return os.path.abspath(path)
    for module in sys.modules.values():
        path = modules.namespace(module).get('__file__')
        if isinstance(path, str):
            path = os.path.splitext(path)[0] + '.py'
            if path.endswith((os.sep + name, os.sep + name + '.py')) \
                    and text_files.is_file(path):
                return os.path.abspath(path)
    try:
        text_files.version(name)
    except text_files.Unreadable as error:
        if not error.is_missing:
            raise Refused('cannot read %s: %s' % (name, error))
    raise NoFile('no file %s' % name)
