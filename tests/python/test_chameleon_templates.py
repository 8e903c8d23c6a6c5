"""Page templates of Chameleon in the terminal: on stand-ins for old and new versions, and on
Chameleon itself where the host can import it.
"""

import page_template_session
from page_template_session import place, stack

PROGRAM = '''\
import os
from chameleon import PageTemplate, PageTemplateFile
made = {}
def view(name, **values):
    template = made.get(name) or PageTemplateFile(os.path.join(%r, name))
    made[name] = template
    text = template(**values)
    return text
'''
VIEW = "view('page.pt', items=[1, 2], title=u'T & t')\n"
PAGE = {
    'layout.pt': '''\
<html metal:define-macro="layout">
 <h1>${title}</h1>
 <div metal:define-slot="body">
  default ${title}
 </div>
 <p>end ${title}</p>
</html>
''',
    'page.pt': '''\
<html metal:use-macro="load: layout.pt">
<div metal:fill-slot="body">
<ul tal:define="total len(items)">
  <li tal:repeat="item items"
      class="${item}">
    <b tal:condition="item > 1" tal:content="item">x</b>
    ${structure: item}

    text
    ${title.lower()} and
    ${title.upper()}
  </li>
</ul>
</div>
</html>
''',
}
# A macro in a macro, and so on.
LEVELS = dict([
    ('level%d.pt' % level, '''\
<x metal:define-macro="m" metal:use-macro="load: level%d.pt">
</x>
''' % (level + 1)) for level in range(1, 5)], **{
    'level5.pt': '<x metal:define-macro="m">\n${title}\n</x>\n',
    'page.pt': '<x metal:use-macro="load: level1.pt">\n</x>\n'})


class ChameleonTest(page_template_session.TestCase):

    def answers(self, commands, files=PAGE, view=VIEW, options=()):
        """For each engine, its name and what the commands have been answered with."""
        engines = [('chameleon_2',), ('chameleon_3',)]
        if page_template_session.can_import('chameleon'):
            engines.append(())
        for engine in engines:
            program = PROGRAM % self.folder + view
            yield engine, self.render(engine, program, files, commands, options)

    def test_a_breakpoint_stops_once_in_each_turn_of_a_loop(self):
        self.assert_from('page.pt:3', ['break page.pt:6', 'continue', 'continue', 'continue'],
                         ['Breakpoint 2 at page.pt:6', 'page.pt:6', 'page.pt:6',
                          'The program ended with exit status 0.'])

    def test_a_breakpoint_moves_to_where_something_begins(self):
        self.assert_answers(['break page.pt:2', 'continue', 'p items'], ['page.pt:3', '[1, 2]'])
        self.assert_answers(['break page.pt:9', 'continue', 'p item'], ['page.pt:10', '1'])

    def test_a_loop_in_one_line_stops_in_each_turn(self):
        self.assert_answers(
            ['break page.pt:2'] + ['continue'] * 4,
            ['page.pt:2', 'page.pt:2', 'page.pt:2', 'The program ended with exit status 0.'],
            files={'page.pt': '<p>\n<b tal:repeat="item items">${item}</b>\n</p>\n'})

    def test_a_condition_is_an_expression_of_the_language(self):
        self.assert_from('page.pt:7, string:${item} == "string:2"', ['p item'], ['1'])
        self.assert_from('page.pt:7, item == 2', ['p item'], ['2'])

    def test_expressions_are_those_of_the_template(self):
        self.assert_from(
            'page.pt:7', ['p item', 'p title.upper()', 'p string:a${item}', 'p len(items)'],
            ['1', "u'T & T'", "u'a1'", '2'])

    def test_an_unknown_variable_is_an_error_of_one_line(self):
        self.assert_from('page.pt:7', ['p nothere'], ['*** NameError: nothere'])

    def test_what_is_no_expression_is_an_error_of_one_line(self):
        self.assert_from('page.pt:7', ['p 3 +'], ['*** SyntaxError: unexpected EOF while parsing'])

    def test_variables_are_the_templates(self):
        for engine, said in self.answers(['tbreak page.pt:7', 'continue', 'info locals']):
            names = [line.partition(' = ')[0] for line in said[2].splitlines()]
            self.assertEqual((engine, [name for name in names if name.startswith('_')]),
                             (engine, []))
            for line in 'item = 1', 'items = [1, 2]', 'total = 2', "title = u'T & t'":
                self.assert_in(line, said[2])
            self.assertFalse('econtext' in names)

    def test_a_variable_that_is_set_is_what_the_template_goes_on_with(self):
        self.assert_from('page.pt:6', ['item = 7', 'tbreak page.pt:7', 'continue', 'p item'],
                         ['', 'Breakpoint 2 at page.pt:7', 'page.pt:7', '7'])

    def test_values_are_those_before_they_are_escaped(self):
        self.assert_from('page.pt:7', ['p title', "p string:${title}"],
                         ["u'T & t'", "u'T & t'"])

    def test_the_stack_is_that_of_the_templates(self):
        for engine, said in self.answers(['tbreak page.pt:7', 'continue', 'where']):
            self.assertEqual((engine, stack(said[2])), (engine, [
                'prog.py:9', 'prog.py:7', 'page.pt:1', 'layout.pt:4', 'page.pt:7']))

    def test_next_goes_from_line_to_line(self):
        self.assert_from('page.pt:3', ['next'] * 14, [
            'page.pt:4', 'page.pt:5', 'page.pt:6', 'page.pt:7', 'page.pt:10', 'page.pt:11',
            'page.pt:5', 'page.pt:6', 'page.pt:7', 'page.pt:10', 'page.pt:11', 'layout.pt:6',
            'prog.py:8', 'prog.py:8'])

    def test_next_goes_over_a_macro_and_what_fills_its_slots(self):
        self.assert_from('page.pt:1', ['next'], ['prog.py:8'])
        self.assert_from('layout.pt:2', ['next'], ['layout.pt:6'])

    def test_step_leads_into_a_macro_and_what_fills_its_slots(self):
        # Library code is run to find a template.
        self.assert_answers(
            ['tbreak prog.py:10', 'continue', 'tbreak page.pt:1', 'continue', 'step', 'step'],
            ['page.pt:1', 'layout.pt:2', 'page.pt:3'], view=VIEW + VIEW,
            options=['--just-my-code'])

    def test_step_leads_from_the_program_into_a_template_that_is_to_be_made(self):
        self.assert_from('prog.py:7', ['step'], ['page.pt:1'], options=['--just-my-code'])

    def test_return_leads_out_of_what_fills_a_slot_and_out_of_a_macro(self):
        self.assert_from('page.pt:11', ['return', 'return'], ['layout.pt:6', 'prog.py:8'])

    def test_the_program_runs_on_from_a_step_in_a_template(self):
        self.assert_from('page.pt:3', ['next', 'continue'],
                         ['page.pt:4', 'The program ended with exit status 0.'])

    def test_an_uncaught_exception_stops_at_its_templates_line(self):
        files = {'page.pt': '''\
<ul>
 <li tal:repeat="item items">
   ${item}
   ${0 / (item - 2)}
   ${title}
 </li>
</ul>
'''}
        for engine, said in self.answers(['continue', 'p item', 'up'], files=files):
            self.assert_in('--Unhandled exception--\nZeroDivisionError', said[0])
            self.assertEqual((engine, [place(answer) for answer in said[:3]]),
                             (engine, ['page.pt:4', '2', 'prog.py:7']))

    def test_a_name_that_the_engine_does_not_find_stops_at_its_templates_line(self):
        files = {'page.pt': '<p>\n ${title}\n ${nothere}\n ${title}\n</p>\n'}
        for engine, said in self.answers(['continue'], files=files):
            self.assert_in('--Unhandled exception--\nNameError', said[0])
            self.assertEqual((engine, place(said[0])), (engine, 'page.pt:3'))

    def test_a_macro_may_use_another_one_over_five_levels(self):
        for engine, said in self.answers(['tbreak level5.pt:2', 'continue', 'where', 'next'],
                                         files=LEVELS):
            self.assertEqual((engine, stack(said[2])[2:]), (engine, ['page.pt:1'] + [
                'level%d.pt:%d' % (level, line) for level, line in
                [(1, 1), (2, 1), (3, 1), (4, 1), (5, 2)]]))
            self.assertEqual((engine, place(said[3])), (engine, 'prog.py:8'))

    def test_a_macro_in_a_long_loop_stops_where_its_condition_is_true(self):
        files = {'macro.pt': '<b metal:define-macro="m">\n${item}\n</b>\n', 'page.pt': '''\
<p><i tal:repeat="item items"><b metal:use-macro="load: macro.pt">
</b></i></p>
'''}
        self.assert_from('macro.pt:2, item == 9999', ['p item', 'return'],
                         ['9999', 'prog.py:8'], files=files,
                         view="view('page.pt', items=range(10000))\n")

    def test_a_template_from_a_string_has_no_file(self):
        view = ('template = PageTemplate("<p>\\n${item}\\n${item}</p>")\n'
                'text = template(item=3)\ntext\n')
        self.assert_from('prog.py:10', ['step', 'p item', 'next', 'next'],
                         ['<string>:2', '3', '<string>:3', 'prog.py:11'], files={}, view=view)

    def test_a_template_that_is_changed_is_made_again(self):
        files = {'page.pt': '<p>\n${item}\n</p>\n'}
        view = '''\
path = os.path.join(%r, 'page.pt')
template = PageTemplateFile(path, auto_reload=True)
template(item=1)
open(path, 'w').write('<p>\\n\\n${item}\\n${item}</p>\\n')
os.utime(path, (1, 1))
template(item=2)
done = True
''' % self.folder
        self.assert_answers(
            ['break page.pt:2', 'break page.pt:3', 'continue', 'continue', 'p item', 'next',
             'next'],
            ['page.pt:2', 'page.pt:3', '2', 'page.pt:4', 'prog.py:15'], files=files,
            view=view)

    def test_a_template_may_use_itself(self):
        files = {'page.pt': '''\
<p metal:define-macro="m">
 <i tal:condition="len(items)">
  <b tal:define="items items[1:]"><b metal:use-macro="load: page.pt"></b></b>
 </i>
 end ${items}
</p>
'''}
        self.assert_answers(
            ['tbreak page.pt:5, not items', 'continue', 'p items', 'next', 'p items', 'return'],
            ['page.pt:5', '[]', 'page.pt:5', '[2]', 'page.pt:5'], files=files)
