"""Makes a wheel for the interpreter that runs this, and prints its path.

usage: make_wheel.py FOLDER-OF-BUILT-MODULES FOLDER-FOR-THE-WHEEL
"""

import os
import stat
import sys
import zipfile

import distribution

try:
    import zlib
except ImportError:
    zlib = None  # The interpreter was built without. Installers do not mind.

_MODE = stat.S_IFREG | 0644


def make(project, folder):
    path = os.path.join(folder, '%s-%s-%s.whl' % (project.name, project.version, project.tag))
    distribution.replace(path, lambda output: _write(project, output))
    return path


def _write(project, output):
    archive = zipfile.ZipFile(output, 'w')
    # The records come last, as is usual.
    for name in sorted(project.contents, key=lambda name: ('.dist-info/' in name, name)):
        _add(archive, name, project.contents[name])
    _add(archive, project.record_name(), project.record())
    archive.close()


def _add(archive, name, text):
    # The same wheel from the same files: no times, no owners.
    entry = zipfile.ZipInfo(name)
    entry.compress_type = zipfile.ZIP_DEFLATED if zlib else zipfile.ZIP_STORED
    entry.external_attr = _MODE << 16
    archive.writestr(entry, text)


def main(modules_folder, folder):
    folder = os.path.abspath(folder)
    try:
        project = distribution.Distribution(modules_folder)
        if not os.path.isdir(folder):
            os.makedirs(folder)
        print(make(project, folder))
    except EnvironmentError, error:
        sys.exit('morvik: could not make the wheel: %s' % error)


if __name__ == '__main__':
    main(*sys.argv[1:])
