"""Temporary files and folders."""

import os

import sorrel_session
from sorrel.common import temporary


class TemporaryTest(sorrel_session.TestCase):

    def setUp(self):
        sorrel_session.TestCase.setUp(self)
        for name in 'TMPDIR', 'TEMP', 'TMP':
            os.environ.pop(name, None)

    def test_they_are_where_the_environment_says(self):
        os.environ['TEMP'] = self.folder
        os.environ['TMPDIR'] = os.path.join(self.folder, 'missing')
        self.assertEqual(temporary.place(), self.folder)
        del os.environ['TEMP']
        self.assertEqual(temporary.place(), '/tmp')

    def test_they_are_for_their_user_alone(self):
        os.environ['TMPDIR'] = self.folder
        path, number = temporary.new_file()
        os.write(number, 'text')
        os.close(number)
        self.assertEqual((open(path).read(), os.stat(path).st_mode & 0777), ('text', 0600))
        folders = [temporary.new_folder('one.', self.folder) for _ in range(2)]
        self.assertEqual([os.stat(folder).st_mode & 0777 for folder in folders], [0700, 0700])
        self.assertNotEqual(*folders)

    def test_a_place_that_is_not_there(self):
        self.assertRaises(OSError, temporary.new_folder, 'one.', '/nowhere')

    def test_a_start_does_not_wait_for_the_librarys(self):
        out, _, _ = self.debug("import sys\nprint 'tempfile' in sys.modules\n", ['c'])
        self.assertEqual(out.splitlines()[-2:-1], [sorrel_session.PROMPT + 'False'])
