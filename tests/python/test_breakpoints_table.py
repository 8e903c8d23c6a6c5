"""The table of breakpoints as the debug server edits and lists it; nothing runs here."""

import harness
from harness import core

NO_CHANGES = ([], [])

EDITS = (
    ("clear_breaks", ()),
    ("enable_breaks", (0,)),
    ("enable_breaks", (1,)),
    ("ignore_breaks", (7,)),
    ("set_breaks_cond", ("x",)),
    ("set_breaks_cond", (None,)),
)


class NoText(object):
    """No condition: neither None nor a string."""


class TableTestCase(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.server = harness.Server()
        self.server.init()

    def set(self, name="a.py", line=10, enabled=1, temporary=0, cond=None, ignore=0):
        return core.set_break(name, line, enabled, temporary, cond, ignore)


class IdsTest(TableTestCase):

    def test_ids_count_from_1(self):
        ids = [self.set(line=line) for line in (5, 3, 5)]
        self.assertEqual(ids, [1, 2, 3])
        self.assertEqual([type(id) for id in ids], [int] * 3)

    def test_id_of_a_cleared_breakpoint_is_not_handed_out_again(self):
        self.set()
        core.clear_breaks("a.py", 10)
        self.assertEqual(self.set(), 2)

    def test_clear_all_breaks_does_not_start_the_ids_anew(self):
        self.set()
        core.clear_all_breaks()
        self.assertEqual(self.set(), 2)

    def test_reset_destroy_and_init_start_the_ids_anew(self):
        for start_anew in (core.reset, core.destroy, self.server.init):
            self.set()
            self.set()
            start_anew()
            self.assertEqual(self.set(), 1)

    def test_failed_set_uses_its_id_up(self):
        self.assert_raises(MemoryError, "Out of memory", self.set, cond=NoText())
        self.assertEqual(self.set(), 2)

    def test_failed_set_leaves_no_breakpoint(self):
        self.assert_raises(MemoryError, "Out of memory", self.set, cond=NoText())
        self.assertEqual(core.get_breaks("a.py", 10), [])
        self.assertEqual(core.get_file_breaks("a.py"), [])
        core.clear_all_breaks()

    def test_set_with_arguments_that_cannot_be_parsed_uses_no_id(self):
        self.assert_raises(TypeError, None, core.set_break, "a.py")
        self.assertEqual(self.set(), 1)


class SetTest(TableTestCase):

    def test_set_at_the_same_place_adds_a_breakpoint(self):
        self.set(cond="first", ignore=1)
        self.set(cond="second", ignore=2)
        self.assertEqual(core.get_breaks("a.py", 10),
                         [(2, 1, 0, "second", 2, 0), (1, 1, 0, "first", 1, 0)])

    def test_flags_are_kept_as_0_or_1(self):
        self.set(enabled=0, temporary=-3)
        self.set(enabled=256, temporary=0)
        self.assertEqual(core.get_breaks("a.py", 10),
                         [(2, 1, 0, None, 0, 0), (1, 0, 1, None, 0, 0)])

    def test_no_condition_is_listed_as_none_and_an_empty_one_as_empty(self):
        self.set(cond=None)
        self.set(cond="")
        self.assertEqual([item[3] for item in core.get_breaks("a.py", 10)], ["", None])
        self.assertEqual([item[4] for item in core.get_file_breaks("a.py")], ["", None])

    def test_condition_may_be_unicode_that_is_ascii(self):
        self.set(cond=u"x > 1")
        self.assertEqual(core.get_breaks("a.py", 10), [(1, 1, 0, "x > 1", 0, 0)])
        self.assert_raises(MemoryError, "Out of memory", self.set, cond=u"x > '\xe9'")

    def test_condition_is_kept_as_bytes(self):
        self.set(cond="x == '\xe9\xff'")
        self.assertEqual(core.get_breaks("a.py", 10)[0][3], "x == '\xe9\xff'")

    def test_condition_is_a_copy(self):
        cond = "x" * 1000
        self.set(cond=cond)
        del cond
        self.assertEqual(core.get_breaks("a.py", 10)[0][3], "x" * 1000)

    def test_ignore_count_may_be_negative(self):
        self.set(ignore=-1)
        self.assertEqual(core.get_breaks("a.py", 10)[0][4], -1)

    def test_any_int_is_a_line(self):
        for line in (0, -1, 1, 255, 256, 2 ** 31 - 1, -2 ** 31):
            id = self.set(line=line)
            self.assertEqual(core.get_breaks("a.py", line), [(id, 1, 0, None, 0, 0)])

    def test_line_beyond_an_int_is_refused(self):
        self.assert_raises(OverflowError, None, self.set, line=2 ** 31)
        self.assert_raises(OverflowError, None, self.set, line=-2 ** 31 - 1)

    def test_lines_whose_bytes_are_permuted_are_told_apart(self):
        self.set(line=0x0102)
        self.set(line=0x0201)
        self.assertEqual([item[0] for item in core.get_breaks("a.py", 0x0102)], [1])
        self.assertEqual([item[0] for item in core.get_breaks("a.py", 0x0201)], [2])

    def test_any_bytes_are_a_file_name(self):
        for name in ("", " ", "caf\xc3\xa9.py", "\xff\xfe", "%s%n", "<string>", "x" * 40000,
                     "no/such/folder/x.py", "a\nb.py"):
            id = self.set(name)
            self.assertEqual(core.get_breaks(name, 10), [(id, 1, 0, None, 0, 0)])
            self.assertEqual(core.get_file_breaks(name), [(10, id, 1, 0, None, 0, 0)])

    def test_file_name_with_a_null_byte_is_refused(self):
        self.assert_raises(TypeError, None, self.set, "a\0b.py")

    def test_setting_is_logged_before_and_after_the_arguments_are_parsed(self):
        self.server.stream.clear()
        self.set()
        self.assertEqual(self.server.stream.messages,
                         ["SETTING BREAK\n", "  line = 10, filename = a.py\n"])
        self.server.stream.clear()
        self.assert_raises(TypeError, None, core.set_break)
        self.assertEqual(self.server.stream.messages, ["SETTING BREAK\n"])

    def test_failed_set_is_logged_like_any(self):
        self.server.stream.clear()
        self.assert_raises(MemoryError, None, self.set, cond=NoText())
        self.assertEqual(self.server.stream.messages,
                         ["SETTING BREAK\n", "  line = 10, filename = a.py\n"])


class EditTest(TableTestCase):

    def test_edits_return_none(self):
        self.set()
        for name, arguments in EDITS:
            self.assert_is(getattr(core, name)("a.py", 10, *arguments), None)
        self.assert_is(core.clear_all_breaks(), None)

    def test_edits_where_no_breakpoint_is_do_nothing(self):
        self.set()
        for name, arguments in EDITS:
            getattr(core, name)("a.py", 11, *arguments)
            getattr(core, name)("b.py", 10, *arguments)
        self.assertEqual(core.get_breaks("a.py", 10), [(1, 1, 0, None, 0, 0)])
        self.assertEqual(core.get_breaks("a.py", 11), [])
        self.assertEqual(core.get_breaks("b.py", 10), [])

    def test_edits_compare_file_names_byte_by_byte(self):
        path = self.script("x = 1\n", "a.py")
        others = (path.replace("a.py", "A.py"), path.replace("/a.py", "//a.py"),
                  path.replace("/", "\\"), self.folder + "/./a.py", path + "c")
        self.set(path)
        for other in others:
            for name, arguments in EDITS:
                getattr(core, name)(other, 10, *arguments)
            self.assertEqual(core.get_breaks(other, 10), [])
            self.assertEqual(core.get_file_breaks(other), [])
        self.assertEqual(core.get_breaks(path, 10), [(1, 1, 0, None, 0, 0)])

    def test_edits_act_on_all_breakpoints_at_the_place(self):
        for _ in range(3):
            self.set(cond="old", ignore=1)
        core.enable_breaks("a.py", 10, 0)
        core.ignore_breaks("a.py", 10, 5)
        core.set_breaks_cond("a.py", 10, "new")
        self.assertEqual(core.get_breaks("a.py", 10),
                         [(id, 0, 0, "new", 5, 0) for id in (3, 2, 1)])

    def test_edits_leave_other_files_on_the_line_alone(self):
        for name in ("a.py", "b.py", "a.py", "b.py"):
            self.set(name)
        core.enable_breaks("a.py", 10, 0)
        core.ignore_breaks("a.py", 10, 5)
        core.set_breaks_cond("a.py", 10, "new")
        self.assertEqual(core.get_breaks("b.py", 10),
                         [(4, 1, 0, None, 0, 0), (2, 1, 0, None, 0, 0)])
        core.clear_breaks("a.py", 10)
        self.assertEqual(core.get_breaks("a.py", 10), [])
        self.assertEqual([item[0] for item in core.get_breaks("b.py", 10)], [4, 2])

    def test_enabling_takes_any_int(self):
        self.set()
        for enabled in (0, 1, 0, -1, 0, 256):
            core.enable_breaks("a.py", 10, enabled)
            self.assertEqual(core.get_breaks("a.py", 10)[0][1], int(enabled != 0))

    def test_none_removes_a_condition_and_an_empty_string_is_one(self):
        self.set(cond="x")
        core.set_breaks_cond("a.py", 10, None)
        self.assertEqual(core.get_breaks("a.py", 10)[0][3], None)
        core.set_breaks_cond("a.py", 10, "")
        self.assertEqual(core.get_breaks("a.py", 10)[0][3], "")

    def test_condition_that_is_no_string_is_refused_and_the_old_one_stays(self):
        self.set(cond="x")
        self.set()
        self.assert_raises(TypeError, None, core.set_breaks_cond, "a.py", 10, NoText())
        self.assert_raises(UnicodeEncodeError, None, core.set_breaks_cond, "a.py", 10, u"\xe9")
        self.assertEqual([item[3] for item in core.get_breaks("a.py", 10)], [None, "x"])

    def test_clear_takes_breakpoints_from_anywhere_on_the_line(self):
        for cleared in ("a.py", "b.py", "c.py"):
            for name in ("a.py", "b.py", "c.py"):
                self.set(name)
            core.clear_breaks(cleared, 10)
            left = [len(core.get_breaks(name, 10)) for name in ("a.py", "b.py", "c.py")]
            self.assertEqual(left, [int(name != cleared) for name in ("a.py", "b.py", "c.py")])
            core.clear_all_breaks()

    def test_cleared_place_can_be_set_again(self):
        for _ in range(3):
            id = self.set()
            self.assertEqual([item[0] for item in core.get_breaks("a.py", 10)], [id])
            core.clear_breaks("a.py", 10)
            self.assertEqual(core.get_breaks("a.py", 10), [])

    def test_clear_all_breaks_takes_every_file_and_line(self):
        for line in range(100):
            self.set("a.py", line)
            self.set("b.py", line)
        core.clear_all_breaks()
        self.assertEqual(core.get_file_breaks("a.py") + core.get_file_breaks("b.py"), [])
        self.set("b.py", 5)
        self.assertEqual(core.get_file_breaks("b.py"), [(5, 201, 1, 0, None, 0, 0)])

    def test_reset_clears_every_breakpoint(self):
        self.set()
        core.reset()
        self.assertEqual(core.get_file_breaks("a.py"), [])

    def test_edits_are_no_changes(self):
        self.set()
        self.set(temporary=1)
        for name, arguments in EDITS[1:] + EDITS[:1]:
            getattr(core, name)("a.py", 10, *arguments)
        self.set()
        core.clear_all_breaks()
        self.assertEqual(core.get_changed_bps_lists(), NO_CHANGES)


class ListTest(TableTestCase):

    def test_get_breaks_gives_tuples_of_six(self):
        self.set(enabled=0, temporary=1, cond="x > 1", ignore=3)
        self.assertEqual(core.get_breaks("a.py", 10), [(1, 0, 1, "x > 1", 3, 0)])

    def test_get_file_breaks_gives_tuples_of_seven(self):
        self.set(enabled=0, temporary=1, cond="x > 1", ignore=3)
        self.assertEqual(core.get_file_breaks("a.py"), [(10, 1, 0, 1, "x > 1", 3, 0)])

    def test_get_file_breaks_lists_the_breakpoints_of_a_line_together_newest_first(self):
        for line in (7, 5, 7, 5, 7):
            self.set(line=line)
        listed = [item[:2] for item in core.get_file_breaks("a.py")]
        self.assert_in(listed, ([(7, 5), (7, 3), (7, 1), (5, 4), (5, 2)],
                                [(5, 4), (5, 2), (7, 5), (7, 3), (7, 1)]))

    def test_get_file_breaks_lists_lines_in_the_order_of_the_table(self):
        def bucket(line):
            # Four buckets hold up to eleven lines.
            product = line * 1103515245 & 0xffffffff
            return product >> 28 & 3
        lines = [3, 14, 15, 9, 26, 5, 35, 8, 97, 93]
        for line in lines:
            self.set(line=line)
        # The most recent line comes first within a bucket.
        expected = [line for number in range(4) for line in reversed(lines)
                    if bucket(line) == number]
        self.assertEqual([item[0] for item in core.get_file_breaks("a.py")], expected)

    def test_lists_are_new_each_time(self):
        self.set()
        core.get_breaks("a.py", 10).append("mine")
        core.get_file_breaks("a.py").append("mine")
        self.assertEqual(core.get_breaks("a.py", 10), [(1, 1, 0, None, 0, 0)])
        self.assertEqual(core.get_file_breaks("a.py"), [(10, 1, 1, 0, None, 0, 0)])

    def test_nothing_changed_is_two_new_empty_lists(self):
        first = core.get_changed_bps_lists()
        self.assertEqual(first, NO_CHANGES)
        self.assertEqual(type(first), tuple)
        first[0].append(1)
        first[1].append(1)
        self.assertEqual(core.get_changed_bps_lists(), NO_CHANGES)


class ArgumentsTest(harness.TestCase):

    CALLS = (
        ("set_break", "tracer_set_break", ("a.py", 10, 1, 0, None, 0)),
        ("clear_breaks", "tracer_clear_breaks", ("a.py", 10)),
        ("enable_breaks", "tracer_enable_breaks", ("a.py", 10, 1)),
        ("ignore_breaks", "tracer_ignore_breaks", ("a.py", 10, 1)),
        ("set_breaks_cond", "tracer_set_breaks_cond", ("a.py", 10, None)),
        ("get_breaks", "tracer_get_breaks", ("a.py", 10)),
        ("get_file_breaks", "tracer_get_file_breaks", ("a.py",)),
    )

    def test_wrong_number_of_arguments_is_reported_under_the_name_of_the_format(self):
        harness.Server().init()
        for function, name, arguments in self.CALLS:
            count = len(arguments)
            message = "%s() takes exactly %d argument%s (%%d given)" % (
                name, count, "s"[count == 1:])
            self.assert_raises(TypeError, message % (count - 1), getattr(core, function),
                               *arguments[:-1])
            self.assert_raises(TypeError, message % (count + 1), getattr(core, function),
                               *(arguments + (1,)))

    def test_file_must_be_a_string_and_numbers_ints(self):
        harness.Server().init()
        for function, name, arguments in self.CALLS:
            self.assert_raises(TypeError, None, getattr(core, function),
                               *((None,) + arguments[1:]))
            for i in range(1, len(arguments)):
                if arguments[i] is not None:
                    self.assert_raises(TypeError, "an integer is required",
                                       getattr(core, function),
                                       *(arguments[:i] + ("1",) + arguments[i + 1:]))

    def test_get_changed_bps_lists_takes_no_arguments(self):
        harness.Server().init()
        self.assert_raises(TypeError, "get_changed_bps_lists() takes exactly 0 arguments (1 given)",
                           core.get_changed_bps_lists, 1)

    def test_clear_all_breaks_ignores_its_arguments(self):
        harness.Server().init()
        self.assertEqual(core.clear_all_breaks(1, "two"), None)

    def test_nothing_works_before_init(self):
        for function, name, arguments in self.CALLS:
            self.assert_raises(RuntimeError, "init must be called first",
                               getattr(core, function), *arguments)
        for function in (core.clear_all_breaks, core.get_changed_bps_lists):
            self.assert_raises(RuntimeError, "init must be called first", function)
