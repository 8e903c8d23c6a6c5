"""What ./morvik install and ./morvik wheel make, and that it goes without a trace."""

import base64
import csv
import glob
import hashlib
import os
import shutil
import sys
import zipfile

import installed_case
from installed_case import SORREL, listing

PIP = os.path.join(installed_case.TOP, '.deps', 'pip')
VERSION = '.'.join([str(number) for number in sys.version_info[:2]])


class DistributionTest(installed_case.TestCase):

    def record_name(self):
        return os.path.basename(glob.glob(self.site + '/*.dist-info')[0]) + '/RECORD'

    def assert_debugs(self, **how):
        """Programs can be debugged with what is installed; leaves compiled files."""
        path = self.script('print 6 * 7\n')
        out, err, status = self.run_host('-m', SORREL, path, typed='continue\n', **how)
        self.assertEqual((out.split('(sorrel) ')[1:], err, status),
                         (['42\nThe program ended with exit status 0.\n'], '', 0))

    def assert_refused(self, complaint, *arguments):
        out, err, status = self.run_tool('install.py', *arguments)
        self.assertEqual((out, err, status), ('', 'morvik: could not %s\n' % complaint, 1))


class FolderTest(DistributionTest):

    def test_nothing_is_left(self):
        self.script('value = 1\n', 'site/a_library.py')
        before = listing(self.site)
        self.assertEqual(self.install(), self.site)
        self.assert_debugs()
        self.run_host('-O', '-m', SORREL, 'nothing')
        self.assert_in('sorrel/main.pyo', listing(self.site))
        self.assertEqual(self.uninstall(), self.site)
        self.assertEqual(listing(self.site), before)

    def test_what_was_not_installed_stays(self):
        self.install()
        self.script('value = 1\n', 'site/sorrel/a_module.py')
        self.uninstall()
        self.assertEqual(listing(self.site), {'sorrel': None, 'sorrel/a_module.py': 'value = 1\n'})

    def test_the_record_names_every_file(self):
        self.install()
        recorded = {}
        for name, digest, size in csv.reader(open(os.path.join(self.site, self.record_name()))):
            recorded[name] = digest, size
        for name, text in listing(self.site).items():
            if text is not None:
                digest, size = recorded.pop(name)
                if not name.endswith(('.pyc', '/RECORD', '/INSTALLER')):
                    expected = base64.urlsafe_b64encode(hashlib.sha256(text).digest())
                    self.assertEqual((digest, size),
                                     ('sha256=' + expected.rstrip('='), str(len(text))))
        self.assertEqual(recorded, {})

    def test_no_tests_and_no_examples_are_installed(self):
        self.install()
        kinds = set([os.path.splitext(name)[1] for name, text in listing(self.site).items()
                     if text is not None and '.dist-info/' not in name])
        self.assertEqual(kinds, set(['.py', '.pyc', '.pth', '.so']))
        self.assertEqual(sorted([name for name in os.listdir(self.site)
                                 if not name.endswith(('.dist-info', '.so'))]),
                         ['sorrel', 'sorrel.pth'])
        built = set(os.path.basename(path) for path in glob.glob(installed_case.BUILT + '/*.so')
                    if 'morvik_counting' not in path)
        self.assertEqual(set(os.path.basename(path) for path in glob.glob(self.site + '/*.so')),
                         built)

    def test_installing_again_changes_nothing(self):
        self.install()
        before = listing(self.site)
        self.install()
        after = listing(self.site)
        # Their files' times are in them.
        for name in before:
            if name.endswith('.pyc'):
                before[name] = after[name] = ''
        self.assertEqual(sorted(after), sorted(before))
        self.assertEqual(after, before)

    def test_a_new_version_takes_the_place_of_an_old_one(self):
        self.install()
        expected = sorted(listing(self.site))
        new = os.path.dirname(self.record_name())
        old = os.path.join(self.site, 'morvik-0.0.9.dist-info')
        os.rename(os.path.join(self.site, new), old)
        record = open(old + '/RECORD').read().replace(new, 'morvik-0.0.9.dist-info')
        for name in 'sorrel/gone.py', 'sorrel/gone/__init__.py', 'tmorvik26_gone.so':
            record += name + ',,\n'
            if name.count('/') == 2:
                os.mkdir(os.path.join(self.site, 'sorrel/gone'))
            self.script('', os.path.join('site', name))
        self.script(record, os.path.join(old, 'RECORD'))
        self.install()
        self.assertEqual(sorted(listing(self.site)), expected)

    def test_debug_and_release_hosts_may_share_a_folder(self):
        self.install()
        name = os.path.join('site', '_sorrel_other.so')
        self.script('text', name)
        record = os.path.join(self.site, self.record_name())
        open(record, 'a').write('_sorrel_other.so,,\n')
        self.install()
        self.assert_in('_sorrel_other.so', listing(self.site))
        self.uninstall()
        self.assertEqual(listing(self.site), {})

    def test_modules_that_are_in_use_are_replaced_as_a_whole(self):
        self.install()
        module = glob.glob(self.site + '/_sorrel*.so')[0]
        mapped = open(module, 'rb')
        inode = os.fstat(mapped.fileno()).st_ino
        self.install()
        self.assertNotEqual(os.stat(module).st_ino, inode)
        mapped.close()

    def test_what_somebody_else_has_put_there_is_not_overwritten(self):
        os.mkdir(os.path.join(self.site, 'sorrel'))
        path = self.script('', 'site/sorrel/__init__.py')
        self.assert_refused('install: %s is there already, and not by an installation of Morvik'
                            % path, 'install', self.site, installed_case.BUILT)
        self.assertEqual(listing(self.site), {'sorrel': None, 'sorrel/__init__.py': ''})

    def test_nothing_outside_of_the_folder_is_removed(self):
        self.install()
        path = self.script('', 'outside.py')
        record = open(os.path.join(self.site, self.record_name()), 'a')
        record.write('../outside.py,,\n%s,,\nsorrel/../../outside.py,,\n' % path)
        record.close()
        self.uninstall()
        self.assert_(os.path.exists(path))
        self.assertEqual(listing(self.site), {})

    def test_folders_that_cannot_be_used(self):
        path = self.script('', 'a_file')
        self.assert_refused("install: [Errno 20] Not a directory: '%s/morvik" % path
                            + "-0.1.0.dist-info'", 'install', path, installed_case.BUILT)
        self.assert_refused('uninstall: Morvik is not installed in ' + path, 'uninstall', path)
        self.assert_refused('uninstall: Morvik is not installed in ' + self.site,
                            'uninstall', self.site)

    def test_a_full_device_leaves_what_can_be_removed(self):
        self.install()
        os.remove(os.path.join(self.site, 'sorrel/main.py'))
        os.mkdir(os.path.join(self.site, 'sorrel/main.py'))  # Not to be replaced by a file.
        self.assert_refused('install: [Errno 21] Is a directory',
                            'install', self.site, installed_case.BUILT)
        os.rmdir(os.path.join(self.site, 'sorrel/main.py'))
        self.uninstall()
        self.assertEqual(listing(self.site), {})


class WheelTest(DistributionTest):

    def test_it_holds_what_is_installed(self):
        self.install()
        installed = listing(self.site)
        archive = zipfile.ZipFile(self.make_wheel())
        held = dict([(name, archive.read(name)) for name in archive.namelist()])
        for name in held:
            if not name.endswith('/RECORD'):
                self.assertEqual(installed[name], held[name])
        self.assertEqual(sorted(held), sorted([
            name for name, text in installed.items()
            if text is not None and not name.endswith(('.pyc', '/INSTALLER'))]))
        self.assertEqual(archive.testzip(), None)

    def test_it_is_the_same_each_time(self):
        first = open(self.make_wheel(), 'rb').read()
        self.assertEqual(open(self.make_wheel(), 'rb').read(), first)

    def test_its_name_says_what_it_fits(self):
        interpreter = 'cp%d%d' % sys.version_info[:2]
        flavour = 'd' * hasattr(sys, 'gettotalrefcount') + 'm' + 'u' * (sys.maxunicode > 0xffff)
        self.assertEqual(os.path.basename(self.make_wheel()),
                         'morvik-0.1.0-%s-%s%s-linux_x86_64.whl'
                         % (interpreter, interpreter, flavour))


class PipTest(DistributionTest):

    def setUp(self):
        if sys.version_info < (2, 7):
            self.skip('the last pip for 2.7 does not run on 2.6')
        if not os.path.exists(PIP):
            self.skip('there is no pip for 2.7, which ./morvik setup brings')
        DistributionTest.setUp(self)
        self.environment = dict(os.environ, PYTHONPATH=self.site + os.pathsep + PIP,
                                PIP_CONFIG_FILE=os.devnull)

    def pip(self, command, *arguments):
        out, err, status = self.run_host(
            '-m', 'pip', '--disable-pip-version-check', '--no-cache-dir', '--no-python-version-'
            'warning', command, *arguments, **{'env': self.environment})
        self.assertEqual((err, status), ('', 0))
        return out

    def install_by_pip(self):
        self.pip('install', '--no-index', '--target', self.site, self.make_wheel())

    def test_it_installs_and_removes(self):
        self.install_by_pip()
        self.assert_debugs()
        self.pip('uninstall', '--yes', 'morvik')
        self.assertEqual(listing(self.site), {})

    def test_it_removes_what_it_has_not_installed(self):
        self.install()
        self.assert_debugs()
        self.pip('uninstall', '--yes', 'morvik')
        self.assertEqual(listing(self.site), {})

    def test_what_it_has_installed_is_removed_without_it(self):
        self.install_by_pip()
        self.assert_debugs()
        self.uninstall()
        self.assertEqual(listing(self.site), {})


class SiteTest(DistributionTest):
    """Without a folder: the interpreter's own."""

    def setUp(self):
        DistributionTest.setUp(self)
        del os.environ['PYTHONPATH']
        # An interpreter for this test alone, out of links to what the real one has.
        self.home = os.path.join(self.folder, 'home')
        library = os.path.join('lib', 'python' + VERSION)
        os.makedirs(os.path.join(self.home, library))
        os.mkdir(os.path.join(self.home, 'bin'))
        self.exe = os.path.join(self.home, 'bin', os.path.basename(sys.executable))
        shutil.copy(sys.executable, self.exe)
        os.symlink(os.path.join(sys.prefix, 'include'), os.path.join(self.home, 'include'))
        real = os.path.dirname(os.__file__)
        for name in os.listdir(real):
            if not name.endswith('-packages'):
                os.symlink(os.path.join(real, name), os.path.join(self.home, library, name))

    def test_programs_are_debugged_and_nothing_is_left(self):
        before = listing(self.home)
        folder = self.install('', exe=self.exe)
        self.assert_(folder.startswith(self.home + '/'), folder)
        self.assert_debugs(exe=self.exe)
        self.assertEqual(self.uninstall('', exe=self.exe), folder)
        left = [name for name in listing(self.home) if name not in before
                and not os.path.join(self.home, name + '/').startswith(folder + '/')
                and not folder.startswith(os.path.join(self.home, name))]
        self.assertEqual(left, [])
        self.assertEqual(listing(folder), {})

    def test_a_virtual_environment_is_built_for_as_its_interpreter(self):
        if VERSION != '2.6':  # Whose distutils look for it there.
            os.remove(os.path.join(self.home, 'include'))
        for name in glob.glob(os.path.join(self.home, 'lib', '*', 'site.py*')):
            os.remove(name)
        path = os.path.join(self.home, 'lib', 'python' + VERSION, 'site.py')
        site = open(path, 'w')
        site.write('import sys\nsys.real_prefix = %r\nexecfile(%r)\naddsitedir(%r)\n' % (
            sys.prefix, os.path.join(os.path.dirname(os.__file__), 'site.py'),
            os.path.join(os.path.dirname(path), 'site-packages')))
        site.close()
        described = []
        for exe in self.exe, sys.executable:
            out, err, status = self.run_tool('describe_host.py', exe=exe)
            self.assertEqual((err, status), ('', 0))
            described.append(out.replace('executable=%s\n' % exe, ''))
        self.assertEqual(described[0], described[1])
        self.assert_(self.install('', exe=self.exe).startswith(self.home + '/'))
        self.assert_debugs(exe=self.exe)
