"""What is installed of Morvik: the files, and the records beside them that installers read."""

import base64
import distutils.dist
import hashlib
import imp
import os
import sys
from distutils import sysconfig
from distutils.util import get_platform

_TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


class Distribution(object):
    """For the interpreter that runs this.

    name, version: of the project. tag: what the files fit, as in a wheel's name. contents: the
    text of each file by its name, with '/' between folders; all but the record.
    """

    def __init__(self, modules_folder):
        """modules_folder: where the extension modules have been built."""
        os.chdir(_TOP)  # As setup.py expects.
        project = distutils.dist.Distribution(imp.load_source('setup', 'setup.py').PROJECT)
        self.name, self.version = project.get_name(), project.get_version()
        self.tag = _tag()
        self.info_folder = '%s-%s.dist-info' % (self.name, self.version)
        self.modules = [module.name + sysconfig.get_config_var('SO')
                        for module in project.ext_modules]
        self.contents = {
            # Read by the interpreter where it starts.
            'sorrel.pth': _read('sorrel.pth'),
            self.info_folder + '/LICENSE': _read('LICENSE'),
            self.info_folder + '/METADATA': _metadata(project),
            self.info_folder + '/WHEEL':
                'Wheel-Version: 1.0\nGenerator: %s %s\nRoot-Is-Purelib: false\nTag: %s\n' % (
                    self.name, self.version, self.tag)}
        for name in self.modules:
            self.contents[name] = _read(os.path.join(modules_folder, name))
        for package in project.packages:
            folder = package.replace('.', '/')
            for name in os.listdir(folder):
                if name.endswith('.py'):
                    self.contents[folder + '/' + name] = _read(os.path.join(folder, name))

    def record_name(self):
        return self.info_folder + '/RECORD'

    def record(self, others=()):
        """The text of the record. others: names of files that have come besides."""
        lines = ['%s,sha256=%s,%d\n' % (name, _digest(text), len(text))
                 for name, text in self.contents.items()]
        lines += ['%s,,\n' % name for name in list(others) + [self.record_name()]]
        return ''.join(sorted(lines))


def replace(path, write):
    """Makes a file, in place of an old one at once: programs that run may have that one mapped.

    write: called with the file.
    """
    unfinished = path + '.new'
    output = open(unfinished, 'wb')
    try:
        try:
            write(output)
        finally:
            output.close()
        os.rename(unfinished, path)
    except:
        os.remove(unfinished)
        raise


def _tag():
    """The interpreter, its flavour and the system, as in the name of a wheel."""
    interpreter = 'cp%d%d' % sys.version_info[:2]
    flavour = ''
    if hasattr(sys, 'gettotalrefcount'):
        flavour += 'd'
    if sysconfig.get_config_var('WITH_PYMALLOC'):
        flavour += 'm'
    if sys.maxunicode > 0xffff:
        flavour += 'u'
    system = get_platform().replace('-', '_').replace('.', '_')
    return '%s-%s%s-%s' % (interpreter, interpreter, flavour, system)


def _metadata(project):
    class Text(list):
        write = list.append
    text = Text()
    project.metadata.write_pkg_file(text)
    return ''.join(text)


def _read(path):
    source = open(path, 'rb')
    try:
        return source.read()
    finally:
        source.close()


def _digest(text):
    return base64.urlsafe_b64encode(hashlib.sha256(text).digest()).rstrip('=')
