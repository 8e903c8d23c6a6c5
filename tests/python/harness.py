"""What the tests share."""

import unittest


class Skipped(Exception):
    """Raised by TestCase.skip(); the runner reports the reason."""


class TestCase(unittest.TestCase):
    """unittest's, with the assertions that 2.6 lacks."""

    def skip(self, reason):
        raise Skipped(reason)

    def assert_in(self, item, container):
        if item not in container:
            self.fail("%r not in %r" % (item, container))

    def assert_not_in(self, item, container):
        if item in container:
            self.fail("%r in %r" % (item, container))

    def assert_is(self, first, second):
        if first is not second:
            self.fail("%r is not %r" % (first, second))

    def assert_is_not(self, first, second):
        if first is second:
            self.fail("%r is %r" % (first, second))

    def assert_raises(self, exception_class, message, function, *arguments):
        """The call raises exactly this class, with exactly this message unless it is None."""
        try:
            result = function(*arguments)
        except Exception as error:
            if type(error) is not exception_class:
                self.fail("%r raised %r instead of %s"
                          % (function, error, exception_class.__name__))
            if message is not None:
                self.assertEqual(str(error), message)
            return error
        self.fail("%r returned %r instead of raising %s"
                  % (function, result, exception_class.__name__))
