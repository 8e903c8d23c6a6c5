"""The example template language: what it makes of templates, and debugging them."""

import os
import sys
import thread

import harness
import sublanguage_case
from harness import core

EXAMPLE = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), "examples", "template_language")
BILL = os.path.join(EXAMPLE, "templates", "bill.weft")
ITEM = os.path.join(EXAMPLE, "templates", "item.weft")

ADAS_BILL = u"""\
Dear Ada,

this is what you ordered:

- 2 x gears
  at 12.50 each
  25.00
- 1 x crank
  9.90

To pay: 34.90

Yours, us
"""


class TemplateTestCase(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        sys.dont_write_bytecode = True
        sys.path.insert(0, EXAMPLE)
        sys.path.insert(0, self.folder)
        import weft
        self.weft = weft


class LanguageTest(TemplateTestCase):

    def setUp(self):
        TemplateTestCase.setUp(self)
        os.mkdir(os.path.join(self.folder, "pages"))
        self.script("", "pages/__init__.py")

    def render(self, text, **scope):
        self.script(text, "pages/page.weft")
        sys.modules.pop("pages.page", None)
        return self.weft.render(__import__("pages.page", fromlist=["render"]), **scope)

    def test_text_stands_for_itself(self):
        for text in ("", "one\n", "one\n\n  two", "{ } % # {x} $"):
            self.assertEqual(self.render(text), text)

    def test_text_is_unicode(self):
        self.assertEqual(self.render("\xe2\x82\xac {{ '\xe2\x82\xac' }} {{ x }}", x=u"\u20ac"),
                         u"\u20ac \u20ac \u20ac")

    def test_values_of_expressions(self):
        for expression, value in (("x", "3"), ("x + 1", "4"), ("x.real", "3"), ("f(x)", "6"),
                                  ("f (x, )", "6"), ("[1, x][1]", "3"), ("x | f", "6"),
                                  ("x | f | f", "12"), ("(x | 4)", "7"), ("[f(x | 4)] | len", "1"), ("x > 2 and not (x < 3)", "True"),
                                  ("'a' if x else 'b'", "a"), ("x in (1, 2)", "False"),
                                  ("1.5", "1.5"), ("\n x\n", "3")):
            self.assertEqual(self.render("<{{ %s }}>" % expression, x=3, f=lambda x: 2 * x,
                                         len=len),
                             "<%s>" % value)

    def test_statements(self):
        self.assertEqual(self.render("""\
{% set total = 0 %}
{% for x in xs %}
{% if x > 1 %}
big {{ x }}
{% else %}
small {{ x }}
{% end %}
{% set total = total + x %}
{% end %}
= {{ total }}
""", xs=[1, 2, 3]), "small 1\nbig 2\nbig 3\n= 6\n")

    def test_statements_within_a_line(self):
        self.assertEqual(self.render("{% for x in xs %}{{ x }}{% if x < 3 %}, {% end %}{% end %}.",
                                     xs=[1, 2, 3]), "1, 2, 3.")

    def test_statement_alone_on_its_line_leaves_no_line(self):
        self.assertEqual(self.render("a\n  {% set x = 1 %}  \n {# no\nthing #}\nb {# c #}\n"),
                         "a\nb \n")

    def test_empty_bodies(self):
        self.assertEqual(self.render("{% if x %}{% else %}{% end %}{% for y in x %}{% end %}",
                                     x=[1]), "")

    def test_inclusion(self):
        self.script("<{{ x }}{% set x = x + 1 %}>", "pages/part.weft")
        self.assertEqual(self.render("{% include part %}{% include part %}{{ x }}", x=1),
                         "<1><2>3")

    def test_what_is_wrong_with_a_template(self):
        path = os.path.join(self.folder, "pages", "page.weft")
        for text, line, reason in (
                ("a\n{{ 1 + }}\n", 2, "unexpected EOF while parsing in '1 +'"),
                ("{{ (1 }}", 1, "something is not closed in '(1'"),
                ("\n\n{% nonsense %}", 3, "no statement: 'nonsense'"),
                ("{% for %}", 1, "no statement: 'for'"),
                ("a\n{% if 1 %}\nb\n", 2, "no {% end %}"),
                ("{% end %}", 1, "{% end %} of nothing"),
                ("{% else %}", 1, "{% else %} without {% if %}"),
                ("{% for x in y %}{% else %}{% end %}", 1, "{% else %} without {% if %}"),
                ("{% if 1 %}{% else %}{% else %}{% end %}", 1, "{% else %} without {% if %}")):
            error = self.assert_raises(self.weft.TemplateError,
                                       "%s, line %d: %s" % (path, line, reason),
                                       self.render, text)
            self.assertEqual((error.path, error.line), (path, line))
            self.assert_not_in("pages.page", sys.modules)

    def test_template_that_does_not_exist(self):
        self.assert_raises(ImportError, "No module named nowhere", __import__, "pages.nowhere")

    def test_bills_of_the_example(self):
        import bills
        ada, bob, cy = bills.CUSTOMERS
        render = lambda customer: self.weft.render(bills.bill, customer=customer,
                                                   money=bills.money, sender="us")
        self.assertEqual(render(ada), ADAS_BILL)
        self.assert_in(u"you ordered nothing", render(bob))
        self.assert_raises(AttributeError, "'Gift' object has no attribute 'total'", render, cy)


class DebuggingTest(sublanguage_case.Requests, TemplateTestCase):
    """A bill is written under the debugger; stops are in the template's own lines."""

    def setUp(self):
        TemplateTestCase.setUp(self)
        from weft import debugging
        self.hook = debugging.Hook()
        self.stops = []
        self.requests = []
        self.exceptions = []
        self.server = harness.Server()
        self.server.init(line_cb=self.line, return_cb=self.return_, exception_cb=self.exception)
        core.register_sub_language_hook(self.hook)
        import bills
        self.bills = bills

    def render_one(self, customer):
        return self.weft.render(self.bills.bill, customer=customer, money=self.bills.money,
                                sender="us")

    def bill(self, number=0, first_request="continue_run"):
        """Writes a customer's bill under trace."""
        core.add_to_tstate_tracing(1)
        core.start_trace()
        core.set_import_cb(lambda module: None)
        getattr(core, first_request)()
        core.add_to_tstate_tracing(-1)
        try:
            text = self.render_one(self.bills.CUSTOMERS[number])
        finally:
            core.stop_trace()
        return text

    def place(self, frame):
        """As a debugger would show it."""
        mine = core.get_current_tstate_id()
        name, line = frame.f_code.co_filename, frame.f_lineno
        if core.sub_language_get_frame_category(mine, frame) == 1:
            name, line = core.sub_language_get_active_hook(mine)._TranslateFrame(frame, 0)
        return "%s:%d" % (os.path.basename(name), line)

    def stopped(self, event, frame):
        if frame.f_code.co_filename.startswith(os.path.dirname(os.path.abspath(__file__))):
            core.step_over()
            return
        self.stops.append(event + self.place(frame))
        self.go_on(frame)

    def exception(self, frame, exc_info, changed_bps):
        self.exceptions.append("%s at %s" % (exc_info[0].__name__, self.place(frame)))

    def set_break(self, path, line, cond=None):
        core.set_break(path, line, 1, 0, cond, 0)

    def test_breakpoint_on_a_templates_line(self):
        self.set_break(BILL, 9)
        self.assertEqual(self.bill(), ADAS_BILL)
        self.assertEqual(self.stops, ["bill.weft:9"] * 2)

    def test_breakpoint_in_a_template_that_is_loaded_while_another_runs(self):
        self.assert_not_in("templates.item", sys.modules)
        self.set_break(ITEM, 5)
        self.bill()
        self.assertEqual(self.stops, ["item.weft:5"] * 2)

    def test_breakpoint_on_a_line_that_is_not_reached(self):
        self.set_break(BILL, 15)
        self.bill(0)
        self.assertEqual(self.stops, [])
        self.bill(1)
        self.assertEqual(self.stops, ["bill.weft:15"])

    def test_condition_is_an_expression_of_the_language(self):
        self.set_break(ITEM, 5, "order.what == 'crank' and money(order.price) == '9.90'")
        self.bill()
        self.assertEqual(self.stops, ["item.weft:5"])

    def test_condition_that_is_no_expression_stops(self):
        self.set_break(BILL, 9, "order.")
        self.bill()
        self.assertEqual(self.stops, ["bill.weft:9"] * 2)

    def test_breakpoint_stops_at_the_first_statement_of_its_line(self):
        os.mkdir(os.path.join(self.folder, "pages"))
        self.script("", "pages/__init__.py")
        path = self.script("one\n{% for x in xs %}{{ x }}{% if x %}, {% end %}{% end %}\ntwo\n",
                           "pages/page.weft")
        from pages import page
        self.render_one = lambda customer: self.weft.render(page, xs=[0, 1, 2])
        self.set_break(path, 2)
        self.assertEqual(self.bill(), "one\n01, 2, \ntwo\n")
        # The statement for the line's loop, which begins each turn.
        self.assertEqual(self.stops, ["page.weft:2"] * 4)

    def test_step_over_stays_in_the_template(self):
        self.set_break(BILL, 4)
        self.requests = ["step_over"] * 10
        self.bill()
        self.assertEqual(self.stops, [
            "bill.weft:4", "bill.weft:5", "bill.weft:7", "bill.weft:8", "bill.weft:9",
            "bill.weft:10", "bill.weft:8", "bill.weft:9", "bill.weft:10", "bill.weft:8",
            "bill.weft:13"])

    def test_step_into_enters_an_included_template(self):
        # The first time it is loaded, too: by the library, which is nobody's to hide.
        self.set_break(BILL, 9, "order.what == 'crank'")
        self.requests = ["step_into", "step_over", "step_over"]
        self.bill()
        self.assertEqual(self.stops[:4], ["bill.weft:9", "item.weft:1", "item.weft:2",
                                          "item.weft:5"])

    def test_step_into_enters_what_the_template_calls(self):
        self.set_break(BILL, 10)
        self.requests = ["step_into"]
        self.bill()
        self.assertEqual(self.stops[:2], ["bill.weft:10", "bills.py:15"])

    def test_step_over_a_breakpoint_in_an_included_template_stops_there(self):
        self.set_break(BILL, 9)
        self.set_break(ITEM, 2)
        self.requests = ["step_over"]
        self.bill()
        self.assertEqual(self.stops[:2], ["bill.weft:9", "item.weft:2"])

    def test_step_out_of_an_included_template_stops_in_the_one_around_it(self):
        self.set_break(ITEM, 2)
        self.requests = ["step_out"]
        self.bill()
        self.assertEqual(self.stops[:2], ["item.weft:2", "bill.weft:10"])

    def test_step_over_the_end_of_an_included_template_stops_in_the_one_around_it(self):
        self.set_break(ITEM, 5)
        self.requests = ["step_over", "step_over"]
        self.bill()
        self.assertEqual(self.stops[:3], ["item.weft:5", "return item.weft:5", "bill.weft:10"])

    def test_hidden_frames_are_known_as_such(self):
        categories = []

        def look_out(frame):
            while frame.f_code.co_name != "render_one":
                categories.append((frame.f_code.co_name, core.sub_language_get_frame_category(
                    core.get_current_tstate_id(), frame)))
                frame = frame.f_back
            core.continue_run()
        self.set_break(ITEM, 5, "order.what == 'crank'")
        self.requests = [look_out]
        self.bill()
        self.assertEqual(categories, [("render", 1), ("include", 0), ("<lambda>", 0),
                                      ("render", 1), ("render", 0)])

    def test_exception_is_shown_at_its_templates_line(self):
        core.set_exception_mode(1)
        self.assert_raises(AttributeError, None, self.bill, 2)
        self.assertEqual(self.exceptions[0], "AttributeError at item.weft:5")
        # Further out it is the same one, and only the program's own frames show it again.
        self.assertEqual([text for text in self.exceptions[1:] if "weft" in text], [])

    def test_exception_nobody_handles_is_shown_at_its_templates_line(self):
        # Below the frames of these tests there is a handler, below a new thread's is none.
        core.set_exception_mode(2)
        core.add_to_tstate_tracing(1)
        core.start_trace()
        core.set_import_cb(lambda module: None)

        def work():
            core.bootstrap_new_thread(sys._getframe(), "call", None)
            core.continue_run()
            self.render_one(self.bills.CUSTOMERS[2])
        sys.stderr = harness.Stream()
        try:
            thread.start_new_thread(work, ())
            self.assertEqual(harness.wait_until(lambda: sys.stderr.messages), True)
            # The process must not end under the thread.
            harness.wait_until(lambda: len(sys._current_frames()) == 1)
        finally:
            sys.stderr = sys.__stderr__
        core.stop_trace()
        core.add_to_tstate_tracing(-1)
        self.assertEqual(self.exceptions[0], "AttributeError at item.weft:5")

    def test_ignored_exception_is_ignored_by_its_templates_line(self):
        core.set_exception_mode(1)
        core.ignore_exception_loc(ITEM, 5, 1)
        self.assert_raises(AttributeError, None, self.bill, 2)
        self.assertEqual([text for text in self.exceptions if "weft" in text], [])

    def test_exceptions_that_are_handled_do_not_stop(self):
        core.set_exception_mode(2)
        try:
            self.bill(2)
        except AttributeError:
            self.assertEqual(self.exceptions, [])
        else:
            self.fail("nothing raised")

    def test_without_the_hook_the_python_code_shows(self):
        self.server.init(line_cb=self.line)
        self.requests = ["step_into"] * 12
        self.bill(1, "step_into")
        self.assert_in("runtime.py:19", self.stops)
        self.assert_in("<template templates.bill>:2", self.stops)
