"""Zip archives that are the same from the same files: no times, no owners."""

import stat
import zipfile

import distribution

try:
    import zlib
except ImportError:
    zlib = None  # The interpreter was built without. Installers do not mind.

_MODE = stat.S_IFREG | 0644


def write(path, contents):
    """Makes an archive, in place of an old one. contents: names and texts, in their order."""
    distribution.replace(path, lambda output: _write(output, contents))


def _write(output, contents):
    archive = zipfile.ZipFile(output, 'w')
    for name, text in contents:
        entry = zipfile.ZipInfo(name)
        entry.compress_type = zipfile.ZIP_DEFLATED if zlib else zipfile.ZIP_STORED
        entry.external_attr = _MODE << 16
        archive.writestr(entry, text)
    archive.close()
