"""What the program has loaded: modules and source files."""

from __future__ import absolute_import

import os
import sys

from sorrel.common import text_files
from sorrel.common.decoding import text
from sorrel.common.real_paths import RealPaths
from sorrel.inspection import compiled_files, module_files, modules
from sorrel.server.shared import sources


class LoadedSources(object):

    def __init__(self, session, program_path, passing):
        """passing: the service's Passing."""
        self._session = session
        self._passing = passing
        self._program_path = module_files.main_of(program_path)
        # How many modules there were when is_loaded() last looked at their files.
        self._looked_at = 0
        self._loaded = self._real_paths = None
        # Of files that were seen being loaded, by their real paths: what tells whether they have
        # changed.
        self._versions = {}
        self.answers = {'modules': self._list_modules, 'loadedSources': self._list_sources,
                        'source': self._source}

    def is_loaded(self, path):
        count = len(sys.modules)
        if self._looked_at != count:
            self._real_paths = RealPaths()
            self._loaded = frozenset(self._real_paths.of(known) for _, known in self._modules())
            self._looked_at = count
        return self._real_paths.of(path) in self._loaded

    def paths(self):
        return [path for _, path in self._modules()]

    def is_changed(self, path):
        """Whether a loaded file was another one when it was loaded, as far as that can be told."""
        version = _version(path)
        if version is None:
            return False
        real_path = os.path.realpath(path)
        if real_path in self._versions:
            return self._versions[real_path] != version
        for file in sources.loaded_files():
            if file.endswith(('.pyc', '.pyo')) \
                    and os.path.realpath(modules.source_name(file)) == real_path:
                return compiled_files.is_of_another(file, version)
        return False

    def namesake(self, path):
        """(name, path) of the module that is loaded in the place of the one in a file, or None."""
        real_path = os.path.realpath(path)
        names = module_files.names_of(path)
        for name, loaded in self._modules():
            if name in names and os.path.realpath(loaded) != real_path:
                return name, loaded
        return None

    def tell_loaded(self, loaded):
        """loaded: pairs of a path and whether it was loaded before."""
        real_paths = RealPaths()
        for path, _ in loaded:
            path = modules.source_name(path)
            self._versions[os.path.realpath(path)] = _version(path)
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


def _version(path):
    try:
        return text_files.version(path)
    except text_files.Unreadable:
        return None
