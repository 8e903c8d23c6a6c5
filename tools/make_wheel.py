"""Makes a wheel for the interpreter that runs this, and prints its path.

usage: make_wheel.py FOLDER-OF-BUILT-MODULES FOLDER-FOR-THE-WHEEL
"""

import os
import sys

import archives
import distribution


def make(project, folder):
    path = os.path.join(folder, '%s-%s-%s.whl' % (project.name, project.version, project.tag))
    # The records come last, as is usual.
    contents = sorted(project.contents.items(), key=lambda item: ('.dist-info/' in item[0], item))
    archives.write(path, contents + [(project.record_name(), project.record())])
    return path


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
