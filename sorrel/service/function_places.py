"""Functions by any end of their names, wherever the program's own code has them."""

from __future__ import absolute_import

import os
import sys

from sorrel.common import text_files
from sorrel.inspection import frames, libraries, module_files, modules
from sorrel.service import locations, places
from sorrel.service.breakpoints import Refused
from sorrel.service.places import NotLoaded

# So many places are named.
_SHOWN = 5


class FunctionPlaces(object):
    """The Places of one name, as modules come.

    is_final: whether the name can mean nothing more than what has been found.
    """

    def __init__(self, name, main_path, code_of, text_of):
        """main_path: of the program. code_of, text_of: give the FileCode and the text of a path, or
        raise text_files.Unreadable.
        """
        self._name = name
        self._main_path = main_path
        self._code_of = code_of
        self._text_of = text_of
        self.is_final = False
        self._found = []
        # The modules that have been searched, by their names: the files that they were of.
        self._searched = {}

    def find(self):
        """What there is by now. Raises Refused, NotLoaded where there is nothing."""
        if not self.is_final:
            words = self._name.split('.')
            if len(self._name) > locations.NAME_LIMIT:
                raise Refused('no function has so long a name')
            if '' in words:
                raise Refused('%s is no name of a function' % self._name)
            refusal = self._find_whole(words)
            if not self.is_final:
                self._find_ends()
            if not self._found:
                raise refusal or NotLoaded('no function %s is loaded' % self._name)
        return self._found

    def forget(self):
        """Files have changed: all is to be looked at again."""
        self.is_final = False
        self._found = []
        self._searched = {}

    def _find_whole(self, words):
        """By its whole name. What was found to be wrong, or None."""
        place = places.in_text(self._main_path, self._name, self._code_of)
        refusal = None
        if place is None and len(words) > 1:
            try:
                place = places.in_modules(self._name, True, self._code_of)
            except Refused as error:
                refusal = error
        if place is None:
            # Last: a module that is being loaded anew is still the old one there.
            main = modules.namespace(sys.modules.get('__main__'))
            place = places.live(main, words, self._code_of)
        if place is not None:
            self._found, self.is_final = [place], True
        return refusal

    def _find_ends(self):
        for path in self._new_paths():
            for name in self._names_in(path):
                place = places.in_text(path, name, self._code_of)
                if place is not None and place not in self._found:
                    self._found.append(place)

    def _new_paths(self):
        """The paths of the program's own modules that have not been searched."""
        found = [self._main_path] if '__main__' not in self._searched else []
        self._searched.setdefault('__main__', None)
        for name, module in sorted(sys.modules.items()):
            variables = modules.namespace(module)
            file = variables.get('__file__')
            if not isinstance(file, str) or name == '__main__' \
                    or self._searched.get(name) == file:
                continue
            self._searched[name] = file
            path = module_files.path_of(file)
            if not frames.is_own_namespace(variables) and not libraries.is_library(path):
                found.append(path)
        return found

    def _names_in(self, path):
        """Those of its functions that end with the name."""
        word = self._name.split('.')[-1]
        try:
            # Much is read, little compiled.
            if word not in self._text_of(path):
                return []
            known = self._code_of(path).functions()
        except text_files.Unreadable:
            return []
        return sorted([name for name in known if ('.' + name).endswith('.' + self._name)])


def shown(found):
    """Several Places, in a few words."""
    first = ['%s:%d' % (os.path.basename(place.path), place.line) for place in found[:_SHOWN]]
    more = len(found) - len(first)
    return '%d places: %s' % (len(found), ', '.join(first + ['and %d more' % more] * bool(more)))
