"""Whether an executable is an interpreter that this one's native core can be loaded into.

It is found out by what its file exports, and nothing is run for it: this is also asked in a process
between fork and exec, where whatever is started could do harm, or take its time. All that is needed
is imported by now, and no lock is taken.
"""

from __future__ import absolute_import

import os
import re
import stat
import struct
import sys

_NAME = re.compile(r'(?:morvik-)?python[\d.]*(?:[-_.]|$)')
_FILE_HEADER = struct.Struct('<4sBB12xH12xQ14xHH6x')
_SEGMENT = struct.Struct('<IIQQQQQQ')
_ENTRY = struct.Struct('<qQ')
_LOADED, _DYNAMIC = 1, 2
_NEEDED, _STRINGS, _STRINGS_SIZE, _RPATH, _RUNPATH = 1, 5, 10, 15, 29
# More than any interpreter has, in bytes.
_MOST = 1 << 24
_LIBRARY = re.compile(r'libpython2\.[\w.]+')
_FOLDERS = ('/lib/x86_64-linux-gnu', '/usr/lib/x86_64-linux-gnu', '/lib64', '/usr/lib64', '/lib',
            '/usr/lib', '/usr/local/lib')


class _NotReadable(Exception):
    pass


class _Image(object):
    """What a file in ELF says of the names it exports and needs. Raises _NotReadable."""

    def __init__(self, path):
        _with_file(path, self._read)

    def _read(self, descriptor):
        magic, bits, order, self.machine, at, size, number = _FILE_HEADER.unpack(
            _bytes(descriptor, 0, _FILE_HEADER.size))
        if (magic, bits, order, size) != ('\x7fELF', 2, 1, _SEGMENT.size):
            raise _NotReadable
        segments = _records(_SEGMENT, _bytes(descriptor, at, number * size))
        dynamic = [segment for segment in segments if segment[0] == _DYNAMIC]
        if not dynamic:
            raise _NotReadable
        entries = _records(_ENTRY, _bytes(descriptor, dynamic[0][2], dynamic[0][5]))
        values = dict(entries)
        address, size = values.get(_STRINGS), values.get(_STRINGS_SIZE, 0)
        offsets = [segment[2] + address - segment[3] for segment in segments
                   if segment[0] == _LOADED and segment[3] <= address < segment[3] + segment[5]]
        if not offsets:
            raise _NotReadable
        self._strings = _bytes(descriptor, offsets[0], size)
        self.needed = [self._string(value) for tag, value in entries if tag == _NEEDED]
        # The first gives way to the second.
        self.first_folders = self._folders(values, _RPATH) if _RUNPATH not in values else []
        self.folders = self._folders(values, _RUNPATH)

    def _string(self, at):
        return self._strings[at:self._strings.find('\0', at)]

    def _folders(self, values, tag):
        return self._string(values[tag]).split(':') if tag in values else []

    def has(self, name):
        # A name may share its place with the end of a longer one.
        return name + '\0' in self._strings


def _with_file(path, function):
    """Calls it with the descriptor of a regular file."""
    if not stat.S_ISREG(os.stat(path).st_mode):
        raise _NotReadable  # Opening alone can have effects, on a device.
    # Should it be another one by now, this does not wait for whoever may be at its other end.
    descriptor = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_NOCTTY)
    try:
        if not stat.S_ISREG(os.fstat(descriptor).st_mode):
            raise _NotReadable
        return function(descriptor)
    finally:
        os.close(descriptor)


def beginning(path, size):
    """The first bytes of a file; '' where it cannot be executed or read."""
    try:
        if os.access(path, os.X_OK):
            return _with_file(path, lambda descriptor: os.read(descriptor, size))
    except (EnvironmentError, _NotReadable):
        pass
    return ''


def mentions(path, text):
    """Whether the text is somewhere in a file."""
    return text in beginning(path, _MOST)


def _bytes(descriptor, offset, size):
    if size > _MOST:
        raise _NotReadable
    os.lseek(descriptor, offset, os.SEEK_SET)
    text = os.read(descriptor, size)
    if len(text) != size:
        raise _NotReadable
    return text


def _records(record, text):
    return [record.unpack_from(text, at)
            for at in range(0, len(text) - record.size + 1, record.size)]


def _own_library():
    """The shared library that this interpreter is in, if it is in one."""
    try:
        lines = open('/proc/self/maps').read().splitlines()
    except IOError:
        return None
    paths = [line[line.index('/'):] for line in lines if '/' in line]
    for path in paths:
        if _LIBRARY.match(os.path.basename(path)):
            return path
    return None


# By these names one kind of interpreter is told from another, or from what is none of Python 2.
_TRACES = hasattr(sys, 'getobjects')
_EXPORTED = ['Py_Main', 'Py_BytesWarningFlag', 'PyUnicodeUCS%d_FromObject' % (
    2 if sys.maxunicode < 0x10000 else 4),
    'Py_InitModule4%s_64' % ('TraceRefs' if _TRACES else '')]
_NOT_EXPORTED = []
(_EXPORTED if sys.version_info >= (2, 7) else _NOT_EXPORTED).append('PyCapsule_New')

_own_shared_library = _own_library()
# By device, inode and time of change.
_known = {}


def is_host(path, environment):
    """Whether a new process of it can load the core. environment: what it will get. Raises nothing.

    It is called as interpreters are: other programs have one built in, and options of their own.
    """
    try:
        if not (_NAME.match(os.path.basename(path))
                or _NAME.match(os.path.basename(os.path.realpath(path)))):
            return False
        status = os.stat(path)
        if status.st_mode & (stat.S_ISUID | stat.S_ISGID) or not os.access(path, os.X_OK):
            return False
        key = (status.st_dev, status.st_ino, status.st_mtime,
               environment.get('LD_LIBRARY_PATH', ''))
        if key not in _known:
            _known[key] = _is_of_own_kind(path, environment)
        return _known[key]
    except (EnvironmentError, _NotReadable, struct.error, OverflowError, TypeError, ValueError):
        return False


def _is_of_own_kind(path, environment):
    image = _Image(path)
    if struct.calcsize('P') != 8 or image.machine != _own_machine():
        return False
    libraries = [name for name in image.needed if _LIBRARY.match(name)]
    if libraries:
        path = _library(libraries[0], path, image, environment)
        if path is None:
            return False
        image = _Image(path)
    return not ([name for name in _EXPORTED if not image.has(name)]
                or [name for name in _NOT_EXPORTED if image.has(name)])


def _own_machine():
    return _Image('/proc/self/exe').machine


def _library(name, path, image, environment):
    """The file of a shared library that an executable needs, where the system will find it."""
    origin = os.path.dirname(os.path.realpath(path))
    folders = (image.first_folders + environment.get('LD_LIBRARY_PATH', '').split(':')
               + image.folders)
    found = [os.path.join(folder.replace('${ORIGIN}', origin).replace('$ORIGIN', origin), name)
             for folder in folders if folder]
    if _own_shared_library is not None and os.path.basename(_own_shared_library) == name:
        found.append(_own_shared_library)
    for candidate in found + [os.path.join(folder, name) for folder in _FOLDERS]:
        if os.path.exists(candidate):
            return candidate
    return None
