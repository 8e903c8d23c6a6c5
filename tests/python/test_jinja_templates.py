"""Templates of Jinja2 in the terminal, on whatever version of it the host can import."""

import os
import zipfile

import template_session
from page_template_session import STAND_INS
from template_session import place, stack

ENDED = 'The program ended with exit status 0.'
PATH = template_session.engine_path('jinja2')

PROGRAM = '''\
import jinja2
def environment(**options):
    options.setdefault('loader', jinja2.FileSystemLoader('.'))
    return jinja2.Environment(**options)
def view(name, env=environment(), **variables):
    template = env.get_template(name)
    text = template.render(**variables)
    return text
'''
PAGE = '''\
<h1>{{ title }}</h1>
{% for item in items %}
  {% set double = item * 2 %}
  {{ loop.index }}: {{ double }}
{% endfor %}
{% if title %}
  end
  {{ title }}
{% endif %}
'''
VIEW = PROGRAM + 'view("page.html", title="T", items=[3, 5])\n'
# What is the same with all versions: how often a loop's first line is come to is not.
MACROS = '''\
{% macro field(name, size=3) %}
  <i>{{ name }}</i>
  {{ size }}
{% endmacro %}
{% macro framed(width) %}
  {{ caller(width) }}
{% endmacro %}
'''
CALLS = '''\
{% import "macros.html" as m %}
{{ m.field(one) }}
{% call(width) m.framed(7) %}
  {{ width }} {{ one }}
{% endcall %}
'''


class JinjaTestCase(template_session.TestCase):

    path = PATH or []

    def setUp(self):
        template_session.TestCase.setUp(self)
        if PATH is None:
            self.skip('the host cannot import Jinja2')


class StoppingTest(JinjaTestCase):

    def test_breakpoints_and_steps_in_a_template(self):
        self.assertEqual(self.places(
            VIEW, ['break page.html:3', 'continue', 'next', 'next', 'next', 'continue'],
            page=PAGE)[1:], ['page:3', 'page:4', 'page:2', 'page:3', ENDED])

    def test_breakpoint_that_is_set_when_the_template_is_loaded(self):
        program = PROGRAM + ('env = environment()\nenv.get_template("page.html")\nhere = 1\n'
                             'view("page.html", env, items=[1])\n')
        self.assertEqual(self.places(
            program, ['break prog.py:11', 'continue', 'break page.html:4', 'continue'],
            page=PAGE)[1::2], ['prog.py:11', 'page:4'])

    def test_engine_whose_import_is_the_last(self):
        program = ('import jinja2\nview = jinja2.FileSystemLoader(".").load('
                   'jinja2.Environment(), "page.html")\nview.render(items=[1])\n')
        self.assertEqual(self.places(
            program, ['break page.html:3', 'continue'], page=PAGE)[1], 'page:3')

    def test_breakpoint_in_a_folder_that_the_engine_finds_by_a_link(self):
        os.mkdir(os.path.join(self.folder, 'pages'))
        os.symlink('pages', os.path.join(self.folder, 'current'))
        self.script(PAGE, os.path.join('pages', 'linked.html'))
        program = PROGRAM + ('env = environment(loader=jinja2.FileSystemLoader(%r))\n'
                             'view("linked.html", env, items=[1])\n')
        said = []
        for set_in, loaded_from in ('pages', 'current'), ('current', 'pages'):
            said.append(self.places(
                program % os.path.join(self.folder, loaded_from),
                ['break %s/linked.html:3' % set_in, 'continue'])[1])
        self.assertEqual(said, ['linked:3', 'linked:3'])

    def test_breakpoint_on_each_line_of_text_and_tags(self):
        for line in (1, 2, 8):
            self.assertEqual(self.places(
                VIEW, ['break page.html:%d' % line, 'continue'], page=PAGE)[1:],
                ['page:%d' % line])

    def test_breakpoint_moves_to_where_something_begins(self):
        text = 'text\nmore\n{{ title }}\n{% for item in items %}\n  one\n  two\n  {{ item }}\n' \
            '{% endfor %}\nend\n'
        said = self.render(
            VIEW, ['break page.html:1', 'break page.html:6', 'break page.html:9', 'continue',
                   'info breakpoints', 'continue', 'break page.html:5', 'break page.html:8'],
            page=text)
        self.assertEqual(said[3].splitlines(), [
            'Breakpoint 1 is at page.html:3 now', 'Breakpoint 2 is at page.html:7 now',
            '*** Breakpoint 3: no code from line 9 of page.html on', '> page.html(3)root()',
            '-> {{ title }}'])
        self.assertEqual([line.rpartition(' ')[2] for line in said[4].splitlines()
                          if 'keep' in line], ['page.html:3', 'page.html:7', 'page.html:9'])
        self.assertEqual(template_session.place(said[5]), 'page:7')
        self.assertTrue(said[6].endswith('page.html:7\n'), said[6])
        self.assertTrue(said[7].startswith('*** no code from line 8 of '), said[7])

    def test_breakpoint_goes_by_the_template_as_it_has_changed(self):
        program = PROGRAM + '''\
import os
env = environment(auto_reload=True)
view('page.html', env, items=[1])
open('page.html', 'w').write('new\\n{{ items }}\\n\\ntext\\n{{ items }}\\n')
os.utime('page.html', (1, 1))
view('page.html', env, items=[2])
'''
        places = self.places(program, ['break page.html:4', 'continue', 'continue', 'p items'],
                             page=PAGE)
        self.assertEqual(places[1:], ['page:4', 'page:5', '[2]'])

    def test_events_that_rendering_costs(self):
        program = PROGRAM + '''\
import tmorvik26_vs2012_x64 as core
count = core._for_sorrel['event_number']
def costs():
    template = environment().get_template('page.html')
    template.render(items=[1])
    before = count()
    for _ in range(20):
        template.render(items=range(100))
    return count() - before
print 'it costs', costs()
'''
        costs = []
        for command in 'info threads', 'break other.html:1', 'break page.html:3, 0':
            said = self.render(program, [command, 'continue'], page=PAGE, other='{{ x }}\n')
            costs.append(int(said[-1].split('it costs ')[1].split()[0]))
        # Each of the 2,000 turns has three lines, and more than three calls. Some calls may be told
        # of all the same: where in memory their code is decides whether they are known for passed.
        self.assertTrue(costs[0] < 6000 and costs[1] < 6000 < costs[2], costs)

    def test_engine_is_left_alone_while_nothing_may_stop_in_a_template(self):
        program = VIEW + ('import sorrel.languages.sublanguages as known\n'
                          'print known.is_of_engine(), known._is_asking\n')
        for place, is_asked in ('prog.py:99', False), ('other.html:1', True):
            said = self.render(program, ['break ' + place, 'continue'], page=PAGE, other='')
            self.assertEqual(said[1].splitlines()[0], 'True %s' % is_asked)

    def test_stack_is_the_templates(self):
        said = self.render(VIEW, ['break page.html:4', 'continue', 'where'], page=PAGE)[2]
        self.assertEqual(stack(said), ['page:4'])
        self.assertTrue('jinja2' not in said.replace('import jinja2', ''))

    def test_step_into_a_template_from_the_program(self):
        places = self.places(VIEW, ['break 7', 'continue', 'step'], page=PAGE)
        self.assertEqual(places[1:], ['prog.py:7', 'page:1'])

    def test_step_into_a_template_that_was_not_loaded_before(self):
        program = PROGRAM + 'view("outer.html", x=1)\n'
        self.assertEqual(self.places(
            program, ['break outer.html:2', 'continue', 'step', 'next', 'next'],
            outer='{{ x }}\n{% include "inner.html" %}\n{{ x }}\n',
            inner='{{ x }}\n{{ x }}\n')[1:], ['outer:2', 'inner:1', 'inner:2', 'outer:3'])

    def test_steps_out_of_a_template(self):
        for command in ['next'] * 2, ['return']:
            places = self.places(
                VIEW, ['break page.html:6', 'continue'] + command, page=PAGE)
            self.assertEqual(places[-1][:8], {'next': 'prog.py:', 'return': 'prog.py:'}[command[0]])

    def test_condition_is_in_the_language(self):
        self.assertEqual(self.places(
            VIEW, ['break page.html:4, item is divisibleby(5) and not loop.first', 'continue',
                   'p item|string|length', 'continue'],
            page=PAGE)[1:], ['page:4', '1', ENDED])


class TurnedOffTest(JinjaTestCase):

    def start(self, program, args=(), **files):
        return self.popen(['-m', 'sorrel.main', 'terminal', '--no-templates', '--', program]
                          + list(args), **files)

    def test_python_of_templates_is_shown_as_any(self):
        said = self.render(VIEW, ['break 7', 'continue', 'step', 'where', 'info locals'], page=PAGE)
        self.assertTrue('environment.py(' in said[2] and 'kwargs = ' in said[4])


class InheritanceTest(JinjaTestCase):

    TEMPLATES = {'a0': 'top\n{% block body %}\nnone\n{% endblock %}\n{{ end }}\n'}
    for number in range(1, 6):
        TEMPLATES['a%d' % number] = (
            '{%% extends "a%d.html" %%}\n{%% block body %%}\n{{ end }}\n{{ super() }}\n'
            '{%% endblock %%}\n' % (number - 1))
    VIEW = PROGRAM + 'view("a5.html", end="E")\n'

    def test_stack_over_five_levels(self):
        said = self.render(self.VIEW, ['break a0.html:2', 'break a1.html:4', 'continue', 'continue',
                                       'where'], **self.TEMPLATES)
        places = stack(said[-1])
        self.assertEqual(places[-5:], ['a5:4', 'a4:4', 'a3:4', 'a2:4', 'a1:4'])
        self.assertTrue('a0:2' in places)

    def test_steps_through_the_levels(self):
        places = self.places(
            self.VIEW, ['break a5.html:4', 'continue', 'step', 'next', 'step', 'return', 'next'],
            **self.TEMPLATES)
        self.assertEqual(places[1], 'a5:4')
        self.assertEqual(places[2:5], ['a4:3', 'a4:4', 'a3:3'])
        # In none of the blocks is there a line after the one with super().
        self.assertEqual(places[5:], ['a0:5', 'prog.py:8'])


class MacrosTest(JinjaTestCase):

    VIEW = PROGRAM + 'view("calls.html", one="1")\n'

    def test_step_into_a_macro_and_back(self):
        places = self.places(self.VIEW, ['break calls.html:2', 'continue', 'step', 'next', 'next'],
                             calls=CALLS, macros=MACROS)
        self.assertEqual(places[1:], ['calls:2', 'macros:2', 'macros:3', 'calls:3'])

    def test_call_block_is_run_by_the_macro(self):
        said = self.render(self.VIEW, ['break calls.html:4', 'continue', 'where', 'p width'],
                           calls=CALLS, macros=MACROS)
        self.assertEqual(stack(said[2]), ['calls:3', 'macros:6', 'calls:4'])
        self.assertEqual(said[3], '7\n')

    def test_macro_in_a_long_loop_stops_each_time_that_is_meant(self):
        program = PROGRAM + 'view("long.html", many=range(10000))\nprint "done"\n'
        text = ('{% macro show(n) %}\n{{ n }}\n{% endmacro %}\n'
                '{% for n in many %}\n{{ show(n) }}\n{% endfor %}\n')
        places = self.places(
            program, ['break long.html:2, n % 2500 == 0'] + ['continue', 'p n'] * 4 + ['continue'],
            long=text)
        self.assertEqual(places[1:], ['long:2', '0', 'long:2', '2500', 'long:2', '5000',
                                      'long:2', '7500', 'done ' + ENDED])

    def test_over_a_macro_in_a_long_loop(self):
        program = PROGRAM + 'view("long.html", many=range(10000))\nprint "done"\n'
        text = ('{% macro show(n) %}\n{{ n }}\n{% endmacro %}\n'
                '{% for n in many %}{{ show(n) }}{% endfor %}\n{{ many|length }}\n')
        self.assertEqual(self.places(
            program, ['break long.html:5', 'continue', 'continue'], long=text)[1:],
            ['long:5', 'done ' + ENDED])


class LoadingTest(JinjaTestCase):

    def test_template_that_includes_itself(self):
        program = PROGRAM + 'view("tree.html", n=3)\n'
        text = '{{ n }}\n{% set n = n - 1 %}\n{% if n %}\n{% include "tree.html" %}\n{% endif %}\n'
        said = self.render(program, ['break tree.html:1, n == 1', 'continue', 'where', 'p n', 'up',
                                     'p n', 'return'], tree=text)
        self.assertEqual(stack(said[2]), ['tree:4', 'tree:4', 'tree:1'])
        self.assertEqual((said[3], said[5]), ('1\n', '1\n'))

    def test_template_from_a_string_is_stepped(self):
        program = ('import jinja2\n'
                   'template = jinja2.Template("a\\n{{ x }}\\n{{ y }}\\n")\n'
                   'template.render(x=1, y=2)\n')
        places = self.places(program, ['break 3', 'continue', 'step', 'p x', 'next', 'p y', 'next'])
        self.assertEqual(places[1:6], ['prog.py:3', '<template>:2', '1', '<template>:3', '2'])

    def test_templates_in_a_zip(self):
        archive = os.path.join(self.folder, 'pages.zip')
        with_pages = zipfile.ZipFile(archive, 'w')
        with_pages.writestr('pages/__init__.py', '')
        with_pages.writestr('pages/templates/page.html', PAGE)
        with_pages.close()
        program = '''\
import sys
sys.path.insert(0, %r)
import jinja2, pages
def load(name):
    inside = 'pages/templates/' + name
    return pages.__loader__.get_data(inside).decode('utf-8'), %r + '/' + inside, lambda: True
env = jinja2.Environment(loader=jinja2.FunctionLoader(load))
template = env.get_template('page.html')
template.render(items=[1])
''' % (archive, archive)
        said = self.render(program, ['break 9', 'continue', 'step', 'next', 'next', 'where'])
        self.assertEqual(stack(said[-1]), ['page:3'])
        self.assertTrue('pages.zip/pages/templates/page.html(3)' in said[-1])

    def test_template_that_has_changed_on_disk(self):
        program = PROGRAM + '''\
import os, time
env = environment(auto_reload=True)
view('page.html', env, items=[1])
open('page.html', 'w').write('new\\n\\n{{ items }}\\n\\n')
os.utime('page.html', (1, 1))
view('page.html', env, items=[2])
'''
        places = self.places(program, ['break page.html:3', 'continue', 'p item', 'continue',
                                       'p items'], page=PAGE)
        self.assertEqual(places[1:], ['page:3', '1', 'page:3', '[2]'])

    def test_autoescaping(self):
        program = PROGRAM + 'print view("page.html", environment(autoescape=True), title="<")\n'
        said = self.render(program, ['break page.html:8', 'continue', 'p title', 'p title|e',
                                     'continue'], page=PAGE)
        self.assertEqual(said[2:4], ["'<'\n", "Markup(u'&lt;')\n"])
        self.assertTrue('&lt;' in said[4])


class OtherEnginesTest(JinjaTestCase):

    path = (PATH or []) + [os.path.join(STAND_INS, 'mako_1')]
    PROGRAM = PROGRAM + '''\
from mako.lookup import TemplateLookup
lookup = TemplateLookup(directories=['.'])
def other(name, **given):
    return lookup.get_template(name).render(**given)
'''
    TEMPLATES = {'outer': 'outer\n{{ inner("inner.html", n=n + 1) }}\n{{ n }}\n',
                 'inner': 'inner\n${n}\n${n + 1}\n',
                 'first': '${inner("last.html", n=n + 1)}\n${n}\n',
                 'last': '{{ n }}\n{{ n + 1 }}\n'}

    def test_templates_of_two_engines_by_turns(self):
        program = self.PROGRAM + ('for n in 1, 2:\n    view("last.html", n=n)\n'
                                  '    other("inner.html", n=n)\n')
        self.assertEqual(self.places(
            program, ['break last.html:2', 'break inner.html:2'] + ['continue', 'p n'] * 4,
            **self.TEMPLATES)[2:], ['last:2', '1', 'inner:2', '1', 'last:2', '2', 'inner:2', '2'])

    def test_template_of_another_engine_within_one_of_this(self):
        said = self.render(
            self.PROGRAM + 'view("outer.html", n=1, inner=other)\n',
            ['break inner.html:2', 'continue', 'where', 'p n', 'n = 7', 'next', 'p n', 'up', 'up',
             'p n'], **self.TEMPLATES)
        self.assertEqual(stack(said[2]), ['outer:2', 'inner:2'])
        self.assertEqual((said[3], place(said[5]), said[6], said[9]),
                         ('2\n', 'inner:3', '7\n', '1\n'))

    def test_template_of_this_engine_within_one_of_another(self):
        said = self.render(
            self.PROGRAM + 'other("first.html", n=1, inner=view)\n',
            ['break last.html:1', 'continue', 'where', 'p n|string', 'next', 'next', 'next',
             'next'],
            **self.TEMPLATES)
        self.assertEqual(stack(said[2]), ['first:1', 'last:1'])
        self.assertEqual(said[3], "u'2'\n")
        self.assertEqual([place(answer) for answer in said[4:]],
                         ['last:2', 'prog.py:8', 'prog.py:8', 'first:2'])


class VariablesTest(JinjaTestCase):

    def locals(self, said):
        return sorted([line.partition(' = ')[0] for line in said.splitlines()])

    def test_they_are_the_templates(self):
        said = self.render(VIEW, ['break page.html:4', 'continue', 'info locals', 'p double + 1',
                                  'p title ~ "!"', 'p nothing is defined'], page=PAGE)
        self.assertEqual(self.locals(said[2]), ['double', 'item', 'items', 'loop', 'title'])
        self.assertEqual(said[3:], ['7\n', "u'T!'\n", 'False\n'])

    def test_they_can_be_set(self):
        program = PROGRAM + 'print view("page.html", title="T", items=[3])\n'
        said = self.render(program, ['break page.html:4', 'continue', 'double = 99',
                                     'title = "new"', 'p double, title', 'continue'], page=PAGE)
        self.assertEqual(said[4], "(99, 'new')\n")
        self.assertTrue('1: 99' in said[5] and said[5].count('new') == 1)

    def test_what_is_set_reaches_what_is_included(self):
        program = PROGRAM + 'print view("outer.html", x=1)\n'
        said = self.render(program, ['break outer.html:1', 'continue', 'x = 5', 'continue'],
                           outer='{{ x }}\n{% include "inner.html" %}\n', inner='inner {{ x }}\n')
        self.assertTrue('inner 5' in said[3])

    def test_name_that_there_is_not(self):
        said = self.render(VIEW, ['break page.html:4', 'continue', 'other = 1', 'p |', 'p other.x'],
                           page=PAGE)
        self.assertEqual(said[2], '*** LookupError: there is no variable other here\n')
        self.assertTrue(said[3].startswith('*** SyntaxError'))
        self.assertTrue(said[4].startswith('*** UndefinedError'))


class ExceptionsTest(JinjaTestCase):

    TEMPLATES = {'outer': 'x\n{% include "inner.html" %}\n',
                 'inner': '{% if zero == 0 %}\n{{ 1 / zero }}\n{% endif %}\n'}

    def test_caught_one_is_at_its_line(self):
        program = PROGRAM + ('try:\n    view("outer.html", zero=0)\n'
                             'except ZeroDivisionError:\n    pass\n')
        said = self.render(program, ['catch always ZeroDivisionError', 'continue', 'where',
                                     'p zero'], **self.TEMPLATES)
        self.assertEqual(stack(said[2]), ['outer:2', 'inner:2'])
        self.assertEqual(said[3], '0\n')

    def test_uncaught_one_is_at_its_line(self):
        program = PROGRAM + 'view("outer.html", zero=0)\n'
        for name in self.TEMPLATES:
            self.script(self.TEMPLATES[name], name + '.html')
        out, err, status = self.debug(program, ['continue', 'where', 'quit'])
        self.assertEqual(stack(out)[:2], ['inner:2', 'outer:2'])
        self.assertTrue('ZeroDivisionError' in out)
