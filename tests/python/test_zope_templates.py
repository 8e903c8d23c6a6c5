"""Zope's page templates in the terminal: on a stand-in, and on zope.pagetemplate itself where the
host can import it.
"""

import page_template_session
from page_template_session import place, stack

PROGRAM = '''\
import os
from zope.pagetemplate.pagetemplatefile import PageTemplateFile
class Page(PageTemplateFile):
    def pt_getContext(self, args=(), options={}, **ignored):
        return dict(PageTemplateFile.pt_getContext(self, args, options), **options)
def fail(item):
    return 1 / (item - 2)
made = {}
def page(name):
    return made.setdefault(name, Page(os.path.join(%r, name)))
def view(name, **values):
    text = page(name)(page=page, fail=fail, **values)
    return text
'''
VIEW = "view('page.pt', layout=page('layout.pt'), items=[1, 2], title=u'T & t')\n"
PAGE = {
    'layout.pt': '''\
<html metal:define-macro="layout">
 <h1 tal:content="title">t</h1>
 <div metal:define-slot="body">
  default <b tal:content="title">x</b>
 </div>
 <p tal:content="title">end</p>
</html>
''',
    'page.pt': '''\
<html metal:use-macro="layout/macros/layout">
<div metal:fill-slot="body">
<ul tal:define="total python:len(items)">
  <li tal:repeat="item items">

    <b tal:condition="python:item &gt; 1" tal:content="item">x</b>
    <i tal:content="title">y</i>
  </li>
</ul>
</div>
</html>
'''.replace('&gt;', '!='),
}


class ZopeTest(page_template_session.TestCase):

    def answers(self, commands, files=PAGE, view=VIEW, options=('--just-my-code',)):
        """For each engine, its name and what the commands have been answered with."""
        engines = [('zope_tal',)]
        if page_template_session.can_import('zope.pagetemplate.pagetemplatefile'):
            engines.append(())
        for engine in engines:
            yield engine, self.render(engine, PROGRAM % self.folder + view, files, commands,
                                      options)

    def test_a_breakpoint_stops_once_in_each_turn_of_a_loop(self):
        self.assert_from('page.pt:3', ['break page.pt:6', 'continue', 'continue', 'continue'],
                         ['Breakpoint 2 at page.pt:6', 'page.pt:6', 'page.pt:6',
                          'The program ended with exit status 0.'])

    def test_a_condition_is_an_expression_of_the_language_or_python(self):
        self.assert_from('page.pt:7, python:item == 2', ['p item'], ['2'])
        self.assert_from('page.pt:7, item == 2', ['p item'], ['2'])

    def test_expressions_are_those_of_the_language_or_python(self):
        self.assert_from('page.pt:7', ['p item', 'p python:item + 1', 'p len(items)', 'p title'],
                         ['1', '2', '2', "u'T & t'"])

    def test_variables_are_the_templates(self):
        for engine, said in self.answers(['tbreak page.pt:7', 'continue', 'info locals']):
            for line in 'item = 1', 'items = [1, 2]', 'total = 2', "title = u'T & t'":
                self.assert_in(line, said[2])
            names = [line.partition(' = ')[0] for line in said[2].splitlines()]
            for name in 'stuff', 'self', 'nothing':
                self.assertFalse(name in names, (engine, names))

    def test_a_variable_that_is_set_is_what_the_template_goes_on_with(self):
        self.assert_from('page.pt:6', ['item = 7', 'tbreak page.pt:7', 'continue', 'p item'],
                         ['', 'Breakpoint 2 at page.pt:7', 'page.pt:7', '7'])

    def test_the_stack_is_that_of_the_templates(self):
        for engine, said in self.answers(['tbreak page.pt:7', 'continue', 'where']):
            self.assertEqual((engine, stack(said[2])), (engine, [
                'prog.py:14', 'prog.py:12', 'page.pt:1', 'layout.pt:3', 'page.pt:4',
                'page.pt:7']))

    def test_next_goes_from_line_to_line(self):
        self.assert_from('page.pt:3', ['next'] * 5,
                         ['page.pt:4', 'page.pt:6', 'page.pt:7', 'page.pt:6', 'page.pt:7'])

    def test_next_goes_over_what_fills_a_slot(self):
        for engine, said in self.answers(['tbreak layout.pt:3', 'continue', 'next']):
            # The engine itself says where the slot ends, too.
            self.assert_in(place(said[2]), ['layout.pt:5', 'layout.pt:6'])

    def test_step_leads_into_a_macro_and_what_fills_its_slots(self):
        self.assert_from('layout.pt:2', ['step', 'step', 'step'],
                         ['layout.pt:3', 'page.pt:2', 'page.pt:3'])

    def test_step_leads_into_what_a_template_calls(self):
        files = {'page.pt': '<p>\n<b tal:content="python:fail(3)">x</b>\n</p>\n'}
        self.assert_from('page.pt:2', ['step'], ['prog.py:7'], files=files,
                         view="view('page.pt')\n")

    def test_return_leads_out_of_what_fills_a_slot_and_out_of_a_macro(self):
        for engine, said in self.answers(
                ['break page.pt:7, item == 2', 'continue', 'return', 'return', 'return']):
            seen = [place(answer).partition(':')[0] for answer in said[1:4]]
            self.assertEqual((engine, seen[:2]), (engine, ['page.pt', 'layout.pt']))
            self.assertTrue(seen[2] in ('page.pt', 'prog.py'), seen)

    def test_the_program_runs_on_from_a_step_in_a_template(self):
        self.assert_from('page.pt:3', ['next', 'continue'],
                         ['page.pt:4', 'The program ended with exit status 0.'])

    def test_an_uncaught_exception_is_at_its_templates_line(self):
        files = {'page.pt': '''\
<ul>
 <li tal:repeat="item items">
   <b tal:content="item">x</b>
   <b tal:content="python:fail(item)">x</b>
   <b tal:content="item">x</b>
 </li>
</ul>
'''}
        for engine, said in self.answers(['continue', 'up', 'p item'], files=files,
                                         view="view('page.pt', items=[1, 2])\n"):
            self.assert_in('--Unhandled exception--\nZeroDivisionError', said[0])
            self.assertEqual((engine, [place(answer) for answer in said[:3]]),
                             (engine, ['prog.py:7', 'page.pt:4', '2']))

    def test_a_name_that_the_engine_does_not_find_stops_at_its_templates_line(self):
        files = {'page.pt': '<p>\n<b tal:content="items">x</b>\n'
                            '<b tal:content="nothere">x</b>\n</p>\n'}
        for engine, said in self.answers(['continue'], files=files,
                                         view="view('page.pt', items=[1, 2])\n"):
            self.assert_in('--Unhandled exception--', said[0])
            self.assertEqual((engine, place(said[0])), (engine, 'page.pt:3'))

    def test_a_macro_in_a_long_loop_stops_where_its_condition_is_true(self):
        files = {'macro.pt': '<b metal:define-macro="m">\n<u tal:content="item">x</u>\n</b>\n',
                 'page.pt': '<p><i tal:repeat="item items"><b metal:use-macro="macro/macros/m">\n'
                            '</b></i></p>\n'}
        self.assert_from('macro.pt:2, item == 9999', ['p item'], ['9999'], files=files,
                         view="view('page.pt', macro=page('macro.pt'), items=range(10000))\n")

    def test_a_macro_may_use_another_one_over_five_levels(self):
        files = dict([('level%d.pt' % level, '''\
<x metal:define-macro="m">
<y metal:use-macro="python:page('level%d.pt').macros['m']">
</y></x>
''' % (level + 1)) for level in range(1, 5)], **{
            'level5.pt': '<x metal:define-macro="m">\n<b tal:content="title">x</b>\n</x>\n',
            'page.pt': '<p metal:use-macro="python:page(\'level1.pt\').macros[\'m\']">\n</p>\n'})
        for engine, said in self.answers(['tbreak level5.pt:2', 'continue', 'where', 'p title', 'next'],
                                         files=files, view="view('page.pt', title='T')\n"):
            shown = [one.partition(':')[0] for one in stack(said[2]) if '.pt:' in one]
            self.assertEqual((engine, shown), (engine, ['page.pt'] + [
                'level%d.pt' % level for level in range(1, 6)]))
            self.assertEqual(said[3], "'T'\n")

    def test_a_template_may_use_itself(self):
        files = {'page.pt': '''\
<p metal:define-macro="m">
 <i tal:condition="items" tal:define="items python:items[1:]">
  <b metal:use-macro="template/macros/m">
  </b>
 </i>
 <u tal:content="items">x</u>
</p>
'''}
        self.assert_from('page.pt:6', ['p items', 'tbreak page.pt:6', 'continue', 'p items'],
                         ['[2]', 'Breakpoint 2 at page.pt:6', 'page.pt:6', '[1, 2]'],
                         files=files,
                         view="view('page.pt', items=[1, 2])\n")

    def test_a_template_that_is_changed_is_read_again(self):
        files = {'page.pt': '<p>\n<b tal:content="item">x</b>\n</p>\n'}
        view = '''\
view('page.pt', item=1)
path = page('page.pt').filename
open(path, 'w').write('<p>\\n\\n<b tal:content="item">x</b>\\n</p>\\n')
os.utime(path, (1, 1))
del made['page.pt']
view('page.pt', item=2)
'''
        self.assert_answers(
            ['break page.pt:2', 'break page.pt:3', 'continue', 'p item', 'continue', 'p item'],
            ['page.pt:2', '1', 'page.pt:3', '2'], files=files, view=view)

    def test_two_engines_in_one_program_are_both_debugged(self):
        files = {'other.pt': '<p>\n${item}\n</p>\n',
                 'page.pt': '<p>\n<b tal:content="item">x</b>\n</p>\n'}
        view = """\
from chameleon import PageTemplateFile as Other
for item in 1, 2:
    view('page.pt', item=item)
    Other(page('other.pt').filename)(item=item)
"""
        said = self.render(('zope_tal', 'chameleon_3'), PROGRAM % self.folder + view, files, [
            'break page.pt:2', 'break other.pt:2'] + ['continue', 'p item'] * 4 + ['continue'])
        self.assertEqual([place(answer) for answer in said[2:11]], [
            'page.pt:2', '1', 'other.pt:2', '1', 'page.pt:2', '2', 'other.pt:2', '2',
            'The program ended with exit status 0.'])

    def test_a_template_of_one_engine_within_one_of_another(self):
        files = {'other.pt': '<p>\n${item}\n${inner and inner(item)}\n</p>\n',
                 'page.pt': '<p>\n<b tal:content="item">x</b>\n'
                            '<b tal:content="python:inner and inner(item)">x</b>\n</p>\n'}
        program = PROGRAM % self.folder + """\
from chameleon import PageTemplateFile as Other
other = Other(page('other.pt').filename)
def zope(item):
    return view('page.pt', item=item + 1, inner=None)
def chameleon(item):
    return other(item=item + 1, inner=None)
view('page.pt', item=1, inner=chameleon)
other(item=5, inner=zope)
"""
        for engines in ('zope_tal', 'chameleon_3'), ('zope_tal', 'chameleon_2'):
            said = self.render(engines, program, files, [
                'break other.pt:2', 'continue', 'where', 'p item', 'info locals', 'next', 'return',
                'clear other.pt:2', 'break page.pt:2, python:item == 6', 'continue', 'where', 'p item',
                'next', 'next'])
            shown = [one for one in stack(said[2]) if '.pt' in one]
            self.assertEqual((place(said[1]), shown), ('other.pt:2', ['page.pt:3', 'other.pt:2']))
            self.assertEqual(said[3], '2\n')
            self.assert_in('item = 2', said[4])
            self.assertEqual(place(said[5]), 'other.pt:3')
            self.assertEqual(place(said[6]).partition(':')[0], 'prog.py')
            shown = [one for one in stack(said[10]) if '.pt' in one]
            self.assertEqual((place(said[9]), shown), ('page.pt:2', ['other.pt:3', 'page.pt:2']))
            self.assertEqual(said[11], '6\n')
            self.assertEqual(place(said[12]), 'page.pt:3')
