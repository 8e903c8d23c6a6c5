"""What the package is, and how the host's own distutils build it.

./morvik builds with CMake and takes from here what is installed and what it is called.
"""

import os
import platform
import re
from distutils.command.build_ext import build_ext
from distutils.command.build_py import build_py
from distutils.command.sdist import sdist
from distutils.core import Extension, setup

_EXPORTS = 'cmake/exports.map'
_START_FILE = 'sorrel.pth'
# The interpreter's own flags that C++ does not know.
_C_ONLY = re.compile('-Wstrict-prototypes$|-std=')
# What the core's module does not hold: the launcher, the debug server's modules, other platforms.
_NO_CORE = ('src/launcher', 'src/sorrelmodule', 'src/attachmodule', 'src/platform/windows.cpp')
# What the server's module takes of the core's sources: neither exports anything.
_SHARED = ['src/dbgcommon.cpp', 'src/dprintf.cpp', 'src/exceptops/handlers.cpp',
           'src/exceptops/static_lookup.cpp', 'src/platform/posix.cpp']


class _BuildExtensions(build_ext):

    def build_extensions(self):
        self.compiler.compiler_so = [word for word in self.compiler.compiler_so
                                     if not _C_ONLY.match(word)]
        build_ext.build_extensions(self)


class _BuildPackages(build_py):
    """Builds what the interpreter reads when it starts beside the packages."""

    def run(self):
        build_py.run(self)
        self.copy_file(_START_FILE, self.build_lib)

    def get_outputs(self, include_bytecode=1):
        return build_py.get_outputs(self, include_bytecode) + [
            os.path.join(self.build_lib, _START_FILE)]


class _SourceDistribution(sdist):

    # There is no page and no address that the check could find missing.
    sub_commands = []

    def check_metadata(self):
        pass

    def get_file_list(self):
        # Not by a template: looking for its names goes through all that was built and brought.
        self.filelist.files = (
            ['LICENSE', 'README.md', 'setup.py', _EXPORTS, _START_FILE] + _sources('docs', '.md')
            + _sources('sorrel', '.py') + _sources('src') + _sources('src', '.h'))


def _version():
    text = open('sorrel/__init__.py').read()
    return re.search("^__version__ = '(.*)'$", text, re.MULTILINE).group(1)


def _packages():
    return sorted(folder.replace(os.sep, '.') for folder, _, names in os.walk('sorrel')
                  if '__init__.py' in names)


def _sources(top, suffix='.cpp'):
    return sorted(os.path.join(folder, name) for folder, _, names in os.walk(top)
                  for name in names if name.endswith(suffix))


def _extension(name, sources):
    return Extension(
        name, sources, include_dirs=['src'], libraries=['dl'], language='c++',
        depends=_sources('src', '.h') + [_EXPORTS],
        extra_compile_args=['-std=c++17', '-fno-strict-aliasing', '-fno-exceptions', '-fno-rtti',
                            '-fvisibility=hidden', '-fvisibility-inlines-hidden',
                            # The interpreter's headers are older than that.
                            '-Wno-register'],
        extra_link_args=['-Wl,--version-script=' + _EXPORTS])


def _extensions():
    found = [
        _extension('tmorvik26_vs2012_x64', [path for path in _sources('src')
                                            if not path.startswith(_NO_CORE)]),
        _extension('_sorrel', _SHARED + _sources('src/sorrelmodule'))]
    # Where CMake builds it, too.
    if platform.system() == 'Linux' and platform.machine() == 'x86_64':
        found.append(_extension('_sorrel_attach', _sources('src/attachmodule')))
    return found


PROJECT = dict(
    name='morvik',
    version=_version(),
    description='A source-level debugger for programs on CPython 2.6 and 2.7',
    long_description=open('README.md').read(),
    author='The Morvik developers',
    license='MIT',
    platforms=['Linux'],
    classifiers=[
        'Intended Audience :: Developers',
        'License :: OSI Approved :: MIT License',
        'Operating System :: POSIX :: Linux',
        'Programming Language :: C++',
        'Programming Language :: Python :: 2.6',
        'Programming Language :: Python :: 2.7',
        'Programming Language :: Python :: Implementation :: CPython',
        'Topic :: Software Development :: Debuggers'],
    packages=_packages(),
    ext_modules=_extensions(),
    cmdclass={'build_ext': _BuildExtensions, 'build_py': _BuildPackages,
              'sdist': _SourceDistribution})

if __name__ == '__main__':
    setup(**PROJECT)
