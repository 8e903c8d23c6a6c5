"""Installs for the interpreter that runs this, or takes away what was installed.

usage: install.py install FOLDER FOLDER-OF-BUILT-MODULES
       install.py uninstall FOLDER

Prints FOLDER; where that is empty, it is the interpreter's own for what is installed. What was
installed is known by the record that comes with it, as installers of wheels leave it: what one has
installed, the other can remove.
"""

import csv
import glob
import os
import py_compile
import sys
from distutils.dist import Distribution

import distribution


class CannotInstall(Exception):
    """The text says why."""


def site_folder():
    """Where the interpreter's own distutils would install."""
    project = Distribution()
    project.parse_config_files()
    command = project.get_command_obj('install')
    command.ensure_finalized()
    return command.install_platlib


class Installed(object):
    """What is installed in a folder."""

    def __init__(self, folder, project_name='morvik'):
        self._folder = folder
        self.info_folders = [os.path.basename(path) for path in glob.glob(
            os.path.join(folder, project_name + '-*.dist-info'))]
        self.names = set()
        for name in self.info_folders:
            self.names.update(self._recorded(name + '/RECORD'))

    def _recorded(self, name):
        """The names in a record, and that of the record."""
        yield name
        record = open(os.path.join(self._folder, name))
        try:
            for row in csv.reader(record):
                # Never anything outside of the folder.
                if row and os.path.normpath(row[0]) == row[0] \
                        and not row[0].startswith(('/', '..')):
                    yield row[0]
        finally:
            record.close()

    def remove(self, names):
        """Removes these files, what was compiled from them, and the folders that are empty then.

        Records go last: what has been interrupted can be done again.
        """
        for name in sorted(names, key=lambda name: (name.endswith('/RECORD'), name)):
            for ending in ['', 'c', 'o'][:name.endswith('.py') and 3 or 1]:
                path = os.path.join(self._folder, name + ending)
                if os.path.lexists(path):
                    os.remove(path)
        folders = set()
        for name in names:
            while os.path.dirname(name):
                name = os.path.dirname(name)
                folders.add(name)
        for name in sorted(folders, reverse=True):
            path = os.path.join(self._folder, name)
            if os.path.isdir(path) and not os.listdir(path):
                os.rmdir(path)


def install(project, folder):
    """Installs a project, in place of what an earlier installation left."""
    before = Installed(folder)
    for name in project.contents:
        if name not in before.names and os.path.lexists(os.path.join(folder, name)):
            raise CannotInstall('%s is there already, and not by an installation of Morvik'
                                % os.path.join(folder, name))
    contents = dict(project.contents)
    contents[project.info_folder + '/INSTALLER'] = 'morvik\n'
    kept = [name for name in _of_other_flavours(before, project) if name not in contents]
    compiled = [name + 'c' for name in contents if name.endswith('.py')]
    contents[project.record_name()] = project.record(
        compiled + kept + [project.info_folder + '/INSTALLER'])
    # The record first: what is interrupted can be removed.
    for name in sorted(contents, key=lambda name: (name != project.record_name(), name)):
        _write(os.path.join(folder, name), contents[name])
    for name in compiled:
        path = os.path.join(folder, name)
        py_compile.compile(path[:-1], path, doraise=True)
    before.remove(before.names.difference(contents, compiled, kept))


def _of_other_flavours(before, project):
    """Modules of the same version for debug and release hosts that share a folder."""
    if before.info_folders != [project.info_folder]:
        return []
    return [name for name in before.names if '/' not in name and name.endswith('.so')]


def _write(path, text):
    if not os.path.isdir(os.path.dirname(path)):
        os.makedirs(os.path.dirname(path))
    distribution.replace(path, lambda output: output.write(text))


def uninstall(folder):
    installed = Installed(folder)
    if not installed.info_folders:
        raise CannotInstall('Morvik is not installed in ' + folder)
    installed.remove(installed.names)


def main(command, folder, modules_folder=None):
    try:
        folder = os.path.abspath(folder) if folder else site_folder()
        if command == 'install':
            install(distribution.Distribution(modules_folder), folder)
        else:
            uninstall(folder)
        print(folder)
    except (CannotInstall, EnvironmentError), error:
        sys.exit('morvik: could not %s: %s' % (command, error))


if __name__ == '__main__':
    main(*sys.argv[1:])
