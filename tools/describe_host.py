"""Prints what a build needs to know about the interpreter that runs this, as key=value lines.

Lists are separated by semicolons.  Exits with one line on standard error and status 1 when
the interpreter cannot be a host.  Runs on anything that calls itself Python, so that the
wrong ones are told apart instead of failing oddly.
"""

import os
import sys


def refuse(reason):
    sys.stderr.write("%s: %s\n" % (sys.executable, reason))
    sys.stderr.flush()
    leave(1)


def leave(status):
    # A debug interpreter would report its reference count otherwise.
    os._exit(status)


version = sys.version_info
if tuple(version)[:2] not in ((2, 6), (2, 7)):
    refuse("is Python %d.%d; 2.6 or 2.7 is needed" % tuple(version)[:2])

import platform
from distutils import sysconfig


def refuse_without(what):
    package = "python%d.%d-%s" % (
        tuple(version)[:2] + (hasattr(sys, "gettotalrefcount") and "dbg" or "dev",))
    refuse("has no %s (its development files are not installed; Debian has them in %s)" % (
        what, package))


if platform.python_implementation() != "CPython":
    refuse("is %s; CPython is needed" % platform.python_implementation())


# A virtual environment has nothing to build with: that is where its interpreter is from.
prefixes = [sys.exec_prefix, sys.prefix]
if hasattr(sys, "real_prefix"):
    prefixes = [sys.real_prefix]


def moved(path):
    """The same path below this interpreter's own prefix, where that exists.

    An interpreter unpacked somewhere else still reports the paths it was configured with.
    """
    for part in ("/include/", "/lib/"):
        at = path.find(part)
        for prefix in prefixes:
            if at >= 0 and os.path.exists(prefix + path[at:]):
                return prefix + path[at:]
    return path


def existing(paths):
    found = []
    for path in paths:
        path = os.path.normpath(moved(path))
        if os.path.exists(path) and path not in found:
            found.append(path)
    return found


def config(name):
    return sysconfig.get_config_var(name) or ""


multiarch = config("MULTIARCH")

includes = existing([sysconfig.get_python_inc(0), sysconfig.get_python_inc(1),
                     config("INCLUDEPY"), config("CONFINCLUDEPY")])
if not [path for path in includes if os.path.exists(os.path.join(path, "Python.h"))]:
    refuse_without("Python.h")
if multiarch:
    # pyconfig.h there includes <MULTIARCH/pythonX.Y/pyconfig.h>.
    for path in includes[:]:
        parent = os.path.dirname(path)
        if os.path.isdir(os.path.join(parent, multiarch)) and parent not in includes:
            includes.append(parent)
includes = [path for path in includes if path != "/usr/include"]

library_dirs = [config("LIBPL"), os.path.join(config("LIBDIR"), multiarch), config("LIBDIR")]
static = existing([os.path.join(path, config("LIBRARY")) for path in library_dirs])
shared = []
if config("Py_ENABLE_SHARED"):
    names = [name for name in (config("LDLIBRARY"), config("INSTSONAME")) if ".so" in name]
    shared = existing([os.path.join(path, name) for path in library_dirs for name in names])
if not static and not shared:
    refuse_without("libpython to link with")

libraries = []
for word in " ".join([config("MODLIBS"), config("LIBS"), config("SYSLIBS")]).split():
    if word.startswith("-l") and word[2:] not in libraries:
        libraries.append(word[2:])

# Where extension modules find the shared libraries that came with an interpreter outside
# the system's own folders.
run_paths = []
if "/usr" not in prefixes:
    run_paths = existing([os.path.join(prefixes[0], "lib", multiarch)])

flavour = "release"
if hasattr(sys, "gettotalrefcount"):
    flavour = "debug"

# By whichever link it is called it finds its library by the file, and needs one build.
executable = sys.executable
if not hasattr(sys, "real_prefix"):
    executable = os.path.realpath(executable)

for key, value in (("executable", executable),
                   ("version", "%d.%d" % version[:2]),
                   ("flavour", flavour),
                   ("includes", ";".join(includes)),
                   ("static_library", ";".join(static[:1])),
                   ("shared_library", ";".join(shared[:1])),
                   ("libraries", ";".join(libraries)),
                   ("run_paths", ";".join(run_paths)),
                   ("module_suffix", config("SO"))):
    print("%s=%s" % (key, value))
sys.stdout.flush()
leave(0)
