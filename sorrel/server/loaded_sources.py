"""What the program has loaded: modules and source files."""

from __future__ import absolute_import

import os
import sys

from sorrel.common.decoding import text
from sorrel.common.real_paths import RealPaths
from sorrel.inspection import modules
from sorrel.server.shared import sources


class LoadedSources(object):

    def __init__(self, session, program_path, passing):
        """passing: the service's Passing."""
        self._session = session
        self._passing = passing
        self._program_path = program_path
        # How many modules there were when is_loaded() last looked at their files.
        self._looked_at = 0
        self._loaded = self._real_paths = None
        self.answers = {'modules': self._list_modules, 'loadedSources': self._list_sources,
                        'source': self._source}

    def is_loaded(self, path):
        count = len(sys.modules)
        if self._looked_at != count:
            self._real_paths = RealPaths()
            self._loaded = frozenset(self._real_paths.of(known) for _, known in self._modules())
            self._looked_at = count
        return self._real_paths.of(path) in self._loaded

    def tell_loaded(self, loaded):
        """loaded: pairs of a path and whether it was loaded before."""
        real_paths = RealPaths()
        names = dict((real_paths.of(path), name) for name, path in self._modules())
        for path, was_known in loaded:
            path = modules.source_name(path)
            name = names.get(real_paths.of(path), os.path.basename(path))
            self._session.event('module', {'reason': 'changed' if was_known else 'new',
                                           'module': self._describe(name, path)})

    def _modules(self):
        """(name, path) of the modules that are loaded from files; the program's comes first."""
        return [('__main__', self._program_path)] + [
            found for found in sources.loaded_modules() if found[0] != '__main__']

    def _describe(self, name, path):
        return {'id': text(name), 'name': text(name),
                'path': self._session.sources.to_client(path),
                'isUserCode': self._passing.is_own_file(path, name)}

    # Requests.

    def _list_modules(self, arguments):
        loaded = self._modules()
        start = arguments.get('startModule', 0)
        count = arguments.get('moduleCount') or len(loaded)
        return {'totalModules': len(loaded), 'modules': [
            self._describe(*found) for found in loaded[start:start + count]]}

    def _list_sources(self, arguments):
        paths = sorted(set(path for _, path in self._modules()))
        return {'sources': [self._session.sources.describe(path) for path in paths]}

    def _source(self, arguments):
        content, type = self._session.sources.content(
            arguments.get('source', {}), arguments['sourceReference'])
        return {'content': content, 'mimeType': type}
