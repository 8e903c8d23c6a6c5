"""The user, files, buffers and frames: what the core offers besides debugging."""

import array
import ctypes
import mmap
import os
import pwd
import sys

import harness
from harness import core


class UserNameTest(harness.TestCase):

    def test_it_is_the_name_of_the_user_the_process_runs_as_in_unicode(self):
        name = core.GetUserName()
        self.assert_is(type(name), unicode)
        self.assertEqual(name, pwd.getpwuid(os.geteuid()).pw_name.decode("utf-8"))

    def test_arguments_are_ignored(self):
        self.assertEqual(core.GetUserName(1, "two"), core.GetUserName())

    def test_a_user_the_system_does_not_know_is_an_error(self):
        if os.geteuid() != 0:
            self.skip("only root can become a user that nobody knows")
        known = set([entry.pw_uid for entry in pwd.getpwall()])
        os.seteuid([uid for uid in range(54321, 60000) if uid not in known][0])
        try:
            self.assert_raises(OSError, "Unable to get user name", core.GetUserName)
        finally:
            os.seteuid(0)


class AppDataPathTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        for name in ("XDG_CONFIG_HOME", "HOME"):
            if name in os.environ:
                del os.environ[name]

    def config_of(self, home):
        folder = os.path.join(home, ".config")
        os.makedirs(folder)
        return folder

    def test_it_is_the_configured_folder_in_unicode(self):
        os.environ["XDG_CONFIG_HOME"] = self.folder
        os.environ["HOME"] = "/"
        path = core.GetUserAppDataPath()
        self.assert_is(type(path), unicode)
        self.assertEqual(path, self.folder)

    def test_it_is_the_usual_folder_of_the_home_where_none_is_configured(self):
        os.environ["HOME"] = self.folder
        folder = self.config_of(self.folder)
        self.assertEqual(core.GetUserAppDataPath(), folder)
        for ignored in ("", "relative", "./relative"):
            os.environ["XDG_CONFIG_HOME"] = ignored
            self.assertEqual(core.GetUserAppDataPath(), folder)

    def test_a_folder_that_does_not_exist_is_none(self):
        os.environ["HOME"] = self.folder
        self.assertEqual(core.GetUserAppDataPath(), None)
        self.config_of(self.folder)
        os.environ["XDG_CONFIG_HOME"] = os.path.join(self.folder, "missing")
        self.assertEqual(core.GetUserAppDataPath(), None)

    def test_a_file_in_its_place_is_none(self):
        os.environ["XDG_CONFIG_HOME"] = self.script("")
        self.assertEqual(core.GetUserAppDataPath(), None)

    def test_without_a_home_in_the_environment_the_user_database_knows_it(self):
        usual = os.path.join(pwd.getpwuid(os.geteuid()).pw_dir, ".config")
        expected = None
        if os.path.isdir(usual):
            expected = usual.decode("utf-8")
        self.assertEqual(core.GetUserAppDataPath(), expected)
        os.environ["HOME"] = ""
        self.assertEqual(core.GetUserAppDataPath(), expected)

    def test_names_outside_ascii_come_out_whole(self):
        folder = os.path.join(self.folder, "caf\xc3\xa9")
        os.mkdir(folder)
        os.environ["XDG_CONFIG_HOME"] = folder
        self.assertEqual(core.GetUserAppDataPath(), self.folder.decode("ascii") + u"/caf\xe9")

    def test_other_names_are_read_as_the_interpreter_reads_file_names(self):
        folder = os.path.join(self.folder, "caf\xe9")
        os.mkdir(folder)
        os.environ["XDG_CONFIG_HOME"] = folder
        encoding = ctypes.c_char_p.in_dll(ctypes.pythonapi, "Py_FileSystemDefaultEncoding")
        encoding.value = "iso-8859-1"
        self.assertEqual(core.GetUserAppDataPath(), self.folder.decode("ascii") + u"/caf\xe9")
        encoding.value = "ascii"
        self.assertEqual(core.GetUserAppDataPath(), None)

    def test_arguments_are_refused_by_name(self):
        self.assert_raises(TypeError, "GetUserAppDataPath() takes exactly 0 arguments (1 given)",
                           core.GetUserAppDataPath, 1)


class FileTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.path = os.path.join(self.folder, "out")
        self.file = open(self.path, "w+")

    def written(self):
        self.file.flush()
        return open(self.path).read()

    def test_set_encoding_decides_how_unicode_is_printed(self):
        self.assertEqual(core.PyFile_SetEncoding(self.file, "utf-16-le"), None)
        self.assertEqual(self.file.encoding, "utf-16-le")
        print >>self.file, u"\xe9",
        self.assertEqual(self.written(), "\xe9\0")

    def test_set_encoding_takes_a_name_that_does_not_exist_and_printing_then_fails(self):
        core.PyFile_SetEncoding(self.file, "no-such-encoding")

        def write():
            print >>self.file, u"\xe9"
        self.assert_raises(LookupError, "unknown encoding: no-such-encoding", write)

    def test_set_encoding_refuses_what_is_no_file(self):
        self.assert_raises(TypeError, "argument 1 must be file, not int",
                           core.PyFile_SetEncoding, 1, "ascii")
        self.assert_raises(TypeError, "argument 1 must be file, not Stream",
                           core.PyFile_SetEncoding, harness.Stream(), "ascii")

    def test_set_encoding_argument_errors_name_no_function(self):
        self.assert_raises(TypeError, "function takes exactly 2 arguments (1 given)",
                           core.PyFile_SetEncoding, self.file)
        self.assert_raises(TypeError, "argument 2 must be string, not int",
                           core.PyFile_SetEncoding, self.file, 1)

    def test_write_object_writes_the_text_or_the_representation(self):
        self.assertEqual(core.PyFile_WriteObject("a b\n", self.file, 1), None)
        self.assertEqual(core.PyFile_WriteObject("a b\n", self.file, 0), None)
        core.PyFile_WriteObject(12, self.file, 1)
        self.assertEqual(self.written(), "a b\n'a b\\n'12")

    def test_write_object_writes_to_anything_that_has_write(self):
        stream = harness.Stream()
        core.PyFile_WriteObject([1, "x"], stream, 1)
        self.assertEqual(stream.messages, ["[1, 'x']"])

    def test_write_object_passes_exceptions_on(self):
        self.assert_raises(AttributeError, None, core.PyFile_WriteObject, "text", 1, 1)
        self.file.close()
        self.assert_raises(ValueError, "I/O operation on closed file",
                           core.PyFile_WriteObject, "text", self.file, 1)

    def test_write_object_argument_errors_name_no_function(self):
        self.assert_raises(TypeError, "function takes exactly 3 arguments (2 given)",
                           core.PyFile_WriteObject, "text", self.file)
        self.assert_raises(TypeError, "an integer is required",
                           core.PyFile_WriteObject, "text", self.file, "1")


class CopyIntoBufferTest(harness.TestCase):

    def copy(self, offset, data):
        """The number of bytes that were copied into 10 dots, and what became of them."""
        buffer = array.array("c", "." * 10)
        copied = core.CopyIntoBuffer(buffer, offset, data)
        return copied, buffer.tostring()

    def test_data_that_fits_is_copied_whole(self):
        self.assertEqual(self.copy(0, "abc"), (3, "abc......."))
        self.assertEqual(self.copy(4, "abc"), (3, "....abc..."))
        self.assertEqual(self.copy(0, "0123456789"), (10, "0123456789"))
        self.assertEqual(self.copy(7, "abc"), (3, ".......abc"))
        self.assertEqual(self.copy(3, ""), (0, ".........."))

    def test_data_that_does_not_fit_is_cut(self):
        self.assertEqual(self.copy(6, "abcdefgh"), (4, "......abcd"))
        self.assertEqual(self.copy(0, "0123456789x"), (10, "0123456789"))
        self.assertEqual(self.copy(9, "abc"), (1, ".........a"))

    def test_nothing_is_copied_at_the_end(self):
        self.assertEqual(self.copy(10, "abc"), (0, ".........."))

    def test_nothing_is_copied_outside_the_buffer(self):
        for offset in (-1, -10, -2 ** 31, 11, 100, 2 ** 31 - 1):
            self.assertEqual(self.copy(offset, "abc"), (0, ".........."))

    def test_zero_bytes_are_data(self):
        self.assertEqual(self.copy(1, "a\0b"), (3, ".a\0b......"))

    def test_any_writable_buffer_will_do(self):
        memory = mmap.mmap(-1, 4096)
        self.assertEqual(core.CopyIntoBuffer(memory, 4094, "abc"), 2)
        self.assertEqual(memory[4093:], "\0ab")
        numbers = array.array("H", [0, 0])
        self.assertEqual(core.CopyIntoBuffer(numbers, 2, "\x01\x01"), 2)
        self.assertEqual(numbers.tolist(), [0, 0x0101])

    def test_an_empty_buffer_takes_nothing(self):
        self.assertEqual(core.CopyIntoBuffer(array.array("c"), 0, "abc"), 0)

    def test_a_buffer_can_be_copied_into_itself(self):
        buffer = array.array("c", "0123456789")
        self.assertEqual(core.CopyIntoBuffer(buffer, 3, buffer), 7)
        self.assertEqual(buffer.tostring(), "0120123456")

    def test_a_buffer_that_moves_as_the_offset_is_read(self):
        buffer = array.array("c", "." * 1000000)

        class Offset(object):
            def __int__(self):
                del buffer[10:]
                return 4
        self.assertEqual(core.CopyIntoBuffer(buffer, Offset(), "x" * 900000), 6)
        self.assertEqual(buffer.tostring(), "....xxxxxx")

    def test_what_cannot_be_written_is_refused(self):
        for target in ("0123456789", u"0123456789", 5, None):
            self.assert_raises(TypeError, None, core.CopyIntoBuffer, target, 0, "abc")

    def test_argument_errors_name_no_function(self):
        self.assert_raises(TypeError, "function takes exactly 3 arguments (1 given)",
                           core.CopyIntoBuffer, array.array("c", "."))
        self.assert_raises(TypeError, "an integer is required",
                           core.CopyIntoBuffer, array.array("c", "."), "0", "abc")
        self.assert_raises(OverflowError, None,
                           core.CopyIntoBuffer, array.array("c", "."), 2 ** 31, "abc")


class LocalsToFastTest(harness.TestCase):

    def test_changed_values_reach_the_running_function(self):
        def function():
            value = 1
            frame = sys._getframe()
            frame.f_locals["value"] = 2
            self.assertEqual(core.PyFrame_LocalsToFast(frame, 0), None)
            return value
        self.assertEqual(function(), 2)

    def test_missing_names_keep_their_values_without_clear(self):
        def function():
            value = 1
            frame = sys._getframe()
            del frame.f_locals["value"]
            core.PyFrame_LocalsToFast(frame, 0)
            return value
        self.assertEqual(function(), 1)

    def test_missing_names_lose_their_values_with_clear(self):
        def function():
            value = 1
            frame = sys._getframe()
            del frame.f_locals["value"]
            core.PyFrame_LocalsToFast(frame, 1)
            return value
        self.assert_raises(UnboundLocalError, None, function)

    def test_arguments_are_checked(self):
        self.assert_raises(TypeError, "PyFrame_LocalsToFast() argument 1 must be frame, not int",
                           core.PyFrame_LocalsToFast, 1, 0)
        self.assert_raises(TypeError, "PyFrame_LocalsToFast() takes exactly 2 arguments (1 given)",
                           core.PyFrame_LocalsToFast, sys._getframe())
