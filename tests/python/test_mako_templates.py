"""Templates of Mako in the terminal: on a stand-in, and on Mako where the host can import it."""

import page_template_session
from page_template_session import place, stack

PROGRAM = '''\
from mako.lookup import TemplateLookup
lookup = TemplateLookup(directories=[%r])
def view(name, **given):
    page = lookup.get_template(name)
    text = page.render(**given)
    return text
'''
VIEW = 'print view("page.html", items=[3, 5], title="<T>")\n'
FILES = {
    'base.html': '<h1>${title}</h1>\n${self.body()}\n',
    'page.html': '''\
<%inherit file="base.html"/>
<%def name="cell(x, y=2)">
  <td>${x}</td>
  ${y}
</%def>
% for item in items:
  ${cell(item)}
  <%
    double = item * 2
    other = double
  %>
  ${double | h}
% endfor
<%include file="foot.html"/>
''',
    'foot.html': 'foot ${title}\n${title | h}\n',
    'long.html': '<%def name="show(n)">\n${n}\n</%def>\n% for n in many:\n${show(n)}\n% endfor\n',
    'tree.html': '${n}\n% if n > 1:\n<%\n  context._data["n"] = n - 1\n%>\n'
                 '<%include file="tree.html"/>\n% endif\n',
    'deep1.html': '<%inherit file="deep2.html"/>\n${title}\n',
    'deep2.html': '<%inherit file="deep3.html"/>\n2\n${next.body()}\n',
    'deep3.html': '<%inherit file="deep4.html"/>\n${next.body()}\n',
    'deep4.html': '<%inherit file="deep5.html"/>\n${next.body()}\n',
    'deep5.html': '<p>\n${next.body()}\n${title}\n',
    'wrong.html': '${title}\n${1 / zero}\n',
}


class MakoTest(page_template_session.TestCase):

    def answers(self, commands, view=VIEW, files=FILES, options=()):
        program = PROGRAM % self.folder + view
        engines = [['mako_1'], ['mako_0_9']] + [[]] * page_template_session.can_import('mako')
        for engine in engines:
            yield engine, self.render(engine, program, files, commands, options)

    def test_breakpoints_and_steps(self):
        self.assert_from('page.html:7', ['next', 'next', 'next', 'next'],
                         ['page.html:9', 'page.html:10', 'page.html:12', 'page.html:6'])

    def test_a_breakpoint_moves_to_where_something_begins(self):
        self.assert_answers(['break page.html:8', 'continue'], ['page.html:9'])
        self.assert_answers(['break page.html:13', 'continue'], ['page.html:14'])

    def test_a_breakpoint_in_each_turn_with_a_condition(self):
        self.assert_answers(['break page.html:7, item > 4', 'continue', 'p item'],
                            ['page.html:7', '5'])

    def test_a_step_into_a_def_and_out_of_it(self):
        self.assert_from('page.html:7', ['step', 'next', 'next', 'next'],
                         ['page.html:2', 'page.html:3', 'page.html:4', 'page.html:9'])

    def test_a_step_into_an_included_template(self):
        self.assert_from('page.html:14', ['step', 'next'], ['foot.html:1', 'foot.html:2'])

    def test_the_stack_is_the_templates(self):
        commands = ['break page.html:3', 'continue', 'where']
        for engine, said in self.answers(commands):
            shown = [one for one in stack(said[2]) if not one.startswith('prog.py')]
            self.assertEqual((engine, shown),
                             (engine, ['base.html:2', 'page.html:7', 'page.html:3']))

    def test_five_levels_of_inheritance(self):
        commands = ['break deep1.html:2', 'continue', 'where', 'p title', 'next', 'tbreak deep5.html:3',
                    'continue']
        for engine, said in self.answers(commands, view='view("deep1.html", title="T")\n'):
            shown = [one for one in stack(said[2]) if not one.startswith('prog.py')]
            self.assertEqual((engine, shown), (engine, [
                'deep5.html:2', 'deep4.html:2', 'deep3.html:2', 'deep2.html:3', 'deep1.html:2']))
            self.assertEqual(said[3], "'T'\n")
            self.assertEqual((engine, place(said[4])), (engine, 'deep5.html:3'))

    def test_variables_are_the_templates(self):
        commands = ['break page.html:10', 'continue', 'info locals', 'p double + 1',
                    'p title | h', 'p len(items)']
        for engine, said in self.answers(commands):
            names = [line.partition(' = ')[0] for line in said[2].splitlines()]
            self.assertEqual((engine, [name for name in names if name != 'loop']),
                             (engine, ['double', 'item', 'items', 'title']))
            self.assertEqual((engine, [place(answer) for answer in said[3:6]]),
                             (engine, ['7', said[4].strip(), '2']))
            self.assert_in('&lt;T&gt;', said[4])

    def test_variables_can_be_set(self):
        commands = ['tbreak page.html:12', 'continue', 'double = 99', 'title = "new"', 'continue',
                    'nothing = 1']
        for engine, said in self.answers(commands):
            self.assertTrue('99' in said[4] and 'foot new' in said[4])

    def test_a_name_that_there_is_not(self):
        self.assert_from('page.html:12', ['nothing = 1', 'p nothing'],
                         ['*** LookupError: there is no variable nothing here',
                          "*** NameError: name 'nothing' is not defined"])

    def test_a_def_in_a_long_loop(self):
        self.assert_answers(
            ['break long.html:2, n % 2500 == 0'] + ['continue', 'p n'] * 4,
            ['long.html:2', '0', 'long.html:2', '2500', 'long.html:2', '5000', 'long.html:2',
             '7500'], view='view("long.html", many=range(10000))\n')

    def test_a_template_that_includes_itself(self):
        commands = ['break tree.html:1, n == 1', 'continue', 'where']
        for engine, said in self.answers(commands, view='view("tree.html", n=3)\n'):
            shown = [one for one in stack(said[2]) if not one.startswith('prog.py')]
            self.assertEqual((engine, shown),
                             (engine, ['tree.html:6', 'tree.html:6', 'tree.html:1']))

    def test_a_template_that_has_changed_on_disk(self):
        view = (VIEW + 'import os\nname = os.path.join(%r, "page.html")\n'
                'open(name, "w").write("new\\n\\n${items}\\n")\n'
                'os.utime(name, (2000000000, 2000000000))\n'
                'view("page.html", items=[2], title="")\n')
        self.assert_answers(['break page.html:3', 'continue', 'tbreak prog.py:10', 'clear page.html:3',
                             'continue', 'break page.html:3', 'continue', 'p items'],
                            ['page.html:3', '[2]'], view=view % self.folder)

    def test_a_caught_exception_is_at_its_line(self):
        view = 'try:\n    view("wrong.html", title="x", zero=0)\nexcept ZeroDivisionError:\n    pass\n'
        self.assert_answers(['catch always ZeroDivisionError', 'continue', 'p zero'],
                            ['wrong.html:2', '0'], view=view)

    def test_an_uncaught_exception_is_at_its_line(self):
        commands = ['continue', 'where']
        for engine, said in self.answers(commands, view='view("wrong.html", title="x", zero=0)\n'):
            self.assertEqual((engine, stack(said[1])[-1:]), (engine, ['wrong.html:2']))
