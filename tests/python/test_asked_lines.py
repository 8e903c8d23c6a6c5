"""Hooks of languages that are asked at few lines of their code while a thread runs on."""

import sublanguage_case
from harness import core

OWN = core._for_sorrel
RAISING = """\
try:
    run(page, "x")
except TypeError:
    pass
"""


class AskedLinesTest(sublanguage_case.SubLanguageTestCase):

    def setUp(self):
        sublanguage_case.SubLanguageTestCase.setUp(self)
        self.language = self.register()
        self.language.note_places()
        self.run_program()  # From now on the code is known.

    def tearDown(self):
        OWN["ask_everywhere"]()
        sublanguage_case.SubLanguageTestCase.tearDown(self)

    def stopped(self, event, frame):
        self.stops.append("%s%s %d" % (event, frame.f_code.co_name, frame.f_lineno))
        self.go_on(frame)

    def exception(self, *arguments):
        core.continue_run()

    def asked(self, name, *arguments):
        """Where the hook was asked about a function in another run: (line, event), each once."""
        self.language.note_places(self.language.answers.get("answer", False))
        self.run_program(*arguments)
        return sorted(set([place[1:3] for place in self.language.places if place[0] == name]))

    def test_only_those_are_asked_about(self):
        self.assertEqual(self.asked("part"), [(7, 0), (8, 1), (9, 1), (9, 2)])
        self.assertEqual(OWN["ask_at"](self.code("part"), (9,)), True)
        self.assertEqual(self.asked("part"), [(9, 1)])
        self.assertEqual(self.asked("page"), [(1, 0), (2, 1), (3, 1), (4, 1), (5, 1), (5, 2)])

    def test_none_of_them(self):
        self.assertEqual(OWN["ask_at"](self.code("part"), ()), True)
        self.assertEqual(self.asked("part"), [])

    def test_the_first_line_is_where_calls_are(self):
        self.assertEqual(OWN["ask_at"](self.code("part"), (7,)), True)
        self.assertEqual(self.asked("part"), [(7, 0)])

    def test_a_thread_on_a_step_is_asked_everywhere(self):
        OWN["ask_at"](self.code("part"), (9,))
        self.language.answers["answer"] = \
            lambda frame, event, kind: frame.f_lineno == 2 and kind == -1
        self.requests = ["step_over"] * 3
        places = self.asked("part")
        self.assertEqual(self.stops, ["page 2", "page 3", "page 4", "page 5"])
        self.assertEqual(places, [(7, 0), (8, 1), (9, 1), (9, 2)])

    def test_exceptions_are_asked_about_anywhere(self):
        OWN["ask_at"](self.code("part"), (9,))
        self.assertEqual(self.asked("part", RAISING), [(8, -1)])

    def test_the_last_word_counts(self):
        OWN["ask_at"](self.code("part"), (9,))
        OWN["ask_at"](self.code("part"), (8, 9))
        self.assertEqual(self.asked("part"), [(8, 1), (9, 1)])
        OWN["ask_everywhere"]()
        self.assertEqual(self.asked("part"), [(7, 0), (8, 1), (9, 1), (9, 2)])

    def test_init_forgets_them(self):
        OWN["ask_at"](self.code("part"), ())
        self.init()
        self.language = self.register()
        self.assertEqual(self.asked("part"), [(7, 0), (8, 1), (9, 1), (9, 2)])

    def test_code_that_is_nowhere_is_asked_about_as_before(self):
        self.assertEqual(OWN["ask_at"](compile("1", "<nowhere>", "eval"), (1,)), False)

    def test_wrong_arguments(self):
        for arguments in [(), (self.code("part"),), (1, (1,)), (self.code("part"), [1]),
                          (self.code("part"), ("x",))]:
            self.assertRaises(TypeError, OWN["ask_at"], *arguments)
        self.assertRaises(OverflowError, OWN["ask_at"], self.code("part"), (2 ** 70,))
        self.assertEqual(self.asked("part"), [(7, 0), (8, 1), (9, 1), (9, 2)])

    def test_a_breakpoint_at_such_a_line_stops(self):
        OWN["ask_at"](self.code("part"), (9,))
        self.language.answers["answer"] = lambda frame, event, kind: kind == 1
        self.language.answers["_TranslateFrame"] = lambda frame, _: ("page.lang", frame.f_lineno)
        core.set_break("page.lang", 9, 1, 0, None, 0)
        self.asked("part")
        self.assertEqual(self.stops, ["part 9"])

    def test_memory_for_it_is_given_back(self):
        for turn in range(1000):
            OWN["ask_at"](self.code("part"), tuple(range(200)))
        self.assertEqual(OWN["ask_at"](self.code("part"), ()), True)
