"""Where the client's breakpoints are to be: in files, archives, and texts that no file has.

No code of the program's is run: most is asked in the network thread.
"""

from __future__ import absolute_import

from sorrel.common import spellings, text_files
from sorrel.inspection import file_code, functions, module_files
from sorrel.service import breakpoints
from sorrel.service.breakpoints import Place
from sorrel.service.function_places import FunctionPlaces


class BreakpointPlaces(object):

    def __init__(self, sources, loaded_sources, program_path):
        """sources: the session's Sources, loaded_sources its LoadedSources."""
        self._sources = sources
        self._loaded_sources = loaded_sources
        self._program_path = program_path
        # By the paths of what is in no file: its text, and the FileCode of that.
        self._known = {}

    def spelled(self, path):
        """The path of the file that is meant, as the program has it."""
        if self._sources.known_text(path) or module_files.is_stored(path):
            return path
        return spellings.other(path, self._loaded_sources.paths()) or path

    def of_line(self, path, line):
        """The Places of a line, or the next one with code.

        Raises text_files.Unreadable, breakpoints.Refused.
        """
        code = self.code_of(path)
        line = breakpoints.next_line(code, line, path)
        class_name = code.class_at(line)
        files = self._sources.files_of(path)
        if not files:
            return [Place(path, line, class_name=class_name)]
        return [Place(path, line, file, functions.InText(path), class_name=class_name)
                for file in files]

    def of_function(self, name):
        return FunctionPlaces(name, self._program_path, self.code_of, self._text_of)

    def lines(self, path, first, last):
        """Those of these lines that have code. Raises text_files.Unreadable."""
        return self.code_of(path).lines(first, last)

    def code_of(self, path):
        """The FileCode of a path. Raises text_files.Unreadable."""
        if text_files.is_file(path):
            return file_code.of_file(path)
        text = self._text_of(path)
        known_text, found = self._known.get(path, (None, None))
        if text != known_text:
            found = file_code.of_text(text, path)
            self._known[path] = text, found
        return found

    def _text_of(self, path):
        return self._sources.known_text(path) or module_files.stored_text(path)
