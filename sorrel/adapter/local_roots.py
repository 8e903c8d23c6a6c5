"""Folders of the client's that it names as they are to be read on its own machine."""

from __future__ import absolute_import

import os

from sorrel.common.decoding import text
from sorrel.protocol import folders
from sorrel.protocol.messages import Refused


def completed(request, arguments):
    """A request to begin, and its arguments, with full names of all of them. Raises Refused.

    Relative ones are in "cwd", as a program is, or in the folder that the adapter was started in.
    """
    mappings = arguments.get('pathMappings')
    if not mappings:
        return request, arguments
    full = {'pathMappings': [
        dict(mapping, localRoot=_full(mapping['localRoot'], arguments.get('cwd'), number))
        for number, mapping in enumerate(mappings)]}
    return dict(request, arguments=dict(request['arguments'], **full)), dict(arguments, **full)


def _full(root, folder, number):
    path = folders.in_home(root.encode('utf-8'))
    if folders.is_full(path):
        return text(path)
    start = os.path.join(os.getcwd(), folders.in_home((folder or u'').encode('utf-8')))
    if not start.strip('/'):
        # Editors that are started by no shell start their adapters there.
        raise Refused(u'pathMappings[%d].localRoot is not a full path, and no folder is known that '
                      u'it begins at: %s' % (number, root))
    return text(os.path.normpath(os.path.join(start, path)))
