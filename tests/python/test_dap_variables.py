# -*- coding: utf-8 -*-
"""What an editor is shown of variables and values, and how it changes them."""

import dap_session

PROGRAM = '''# -*- coding: utf-8 -*-
import collections
import os

Point = collections.namedtuple('Point', 'x y')

class Computed(object):
    def __get__(self, owner, kind):
        calls.append('computed')
        return 7

class Base(object):
    """Its text."""
    limit = 10
    _hidden = 11
    computed = Computed()
    def __init__(self):
        self.zeta = 1
        self._private = 2
        self.alpha = 3
        self.callback = len
    def method(self):
        return self.zeta
    @staticmethod
    def static():
        pass
    @property
    def failing(self):
        raise ValueError('no value')
    @property
    def fine(self):
        return 5

class Old:
    kind = 'old'
    def method(self):
        pass

class Empty(object):
    pass  # class

def run(_first, second, function):
    __odd__ = 1
    number = 255
    some = set([1])
    fixed = frozenset([2])
    nested = ([1], {'k': (set([3]), [4])})
    return number  # return

calls = []
word = u'\\xe9\\u20ac\\x07\\u200b\\\\x'
_private = 'b\\xc3\\xa9'
numbers = [10, 255L, {-1: 16}, True, 1.5]
point = Point(1, 'two')
base, old, empty = Base(), Old(), Empty()
run(1, 2, len)  # call
'''
GROUPS = ['(class attributes)', '(functions)', '(special names)']


class VariablesTest(dap_session.TestCase):

    def stopped(self, mark='# call'):
        program = self.serve(PROGRAM, '--wait')
        client = self.attach(program, mark)
        client.stopped()
        return client

    def rows(self, client, variable, **more):
        return client.variables(variable['variablesReference'], **more)

    def names(self, variables):
        return [variable['name'] for variable in variables]

    def named(self, variables, name):
        return [variable for variable in variables if variable['name'] == name][0]

    def set(self, client, whole, name, value):
        return client.ask('setVariable', variablesReference=whole['variablesReference'],
                          name=name, value=value)['value']

    def refusal(self, client, whole, name, value):
        return client.refusal('setVariable', variablesReference=whole['variablesReference'],
                              name=name, value=value)

    # Scopes.

    def test_a_module_has_its_variables_in_one_scope_that_is_not_expensive(self):
        client = self.stopped()
        scopes = client.ask('scopes', frameId=client.top()['id'])['scopes']
        self.assertEqual([(scope['name'], scope['expensive']) for scope in scopes],
                         [('Locals', False)])
        rows = self.rows(client, scopes[0])
        self.assertEqual(self.names(rows), [
            'Base', 'Computed', 'Empty', 'Old', 'Point', 'base', 'calls', 'collections', 'empty',
            'numbers', 'old', 'os', 'point', 'word', '_private', '(functions)', '(special names)'])
        functions = self.rows(client, self.named(rows, '(functions)'))
        self.assertEqual([(one['name'], one['presentationHint']['kind']) for one in functions],
                         [('run', 'method')])
        special = self.rows(client, self.named(rows, '(special names)'))
        self.assert_in('__name__', self.names(special))
        self.assertEqual(self.set(client, scopes[0], 'word', '5'), '5')
        self.assertEqual(self.set(client, self.named(rows, '(special names)'), '__name__', '"n"'),
                         "'n'")
        self.assertEqual(client.evaluate('word, __name__'), "(5, 'n')")

    def test_a_function_has_its_arguments_first_and_its_functions_among_them(self):
        client = self.stopped('# return')
        scopes = client.ask('scopes', frameId=client.top()['id'])['scopes']
        self.assertEqual([(scope['name'], scope['expensive']) for scope in scopes],
                         [('Locals', False), ('Globals', True)])
        rows = self.rows(client, scopes[0])
        self.assertEqual(self.names(rows), ['second', 'function', 'number', 'some', 'fixed',
                                            'nested', '_first', '__odd__'])
        self.assert_in('(functions)', self.names(self.rows(client, scopes[1])))

    def test_the_body_of_a_class_has_groups(self):
        client = self.stopped('# class')
        scopes = client.ask('scopes', frameId=client.top()['id'])['scopes']
        self.assertEqual(self.names(self.rows(client, scopes[0])), ['(special names)'])

    # Objects.

    def test_an_object_has_its_own_attributes_first_and_those_of_its_class_in_groups(self):
        client = self.stopped()
        base = client.variable('base')
        rows = self.rows(client, base)
        self.assertEqual(self.names(rows), [
            'alpha', 'callback', 'zeta', 'failing', 'fine', '_private'] + GROUPS)
        for name, inner in (('(class attributes)', ['computed', 'limit', '_hidden']),
                            ('(functions)', ['method', 'static']),
                            ('(special names)', ['__doc__', '__init__'])):
            group = self.named(rows, name)
            self.assertEqual((group['value'], group['presentationHint']), ('', {'kind': 'virtual'}))
            self.assertEqual(self.names(self.rows(client, group)), inner)
        group = self.named(rows, '(class attributes)')
        self.assertEqual(self.named(self.rows(client, group), 'limit')['evaluateName'],
                         'base.limit')
        self.assertEqual(self.set(client, group, 'limit', '12'), '12')
        self.assertEqual(client.evaluate('base.limit, Base.limit'), '(12, 10)')
        # What a class of the program computes is asked for when it is opened.
        self.assertEqual(client.evaluate('calls'), '[]')
        computed = self.named(self.rows(client, group), 'computed')
        self.assertEqual(computed['presentationHint'], {'kind': 'property', 'lazy': True})
        self.assertEqual([one['value'] for one in self.rows(client, computed)], ['7'])

    def test_objects_of_old_classes_have_their_attributes_in_groups_too(self):
        client = self.stopped()
        rows = self.rows(client, client.variable('old'))
        self.assertEqual(self.names(rows), ['(class attributes)', '(functions)'])
        self.assertEqual(client.variable('empty')['variablesReference'], 0)

    def test_a_class_has_its_functions_in_a_group(self):
        client = self.stopped()
        rows = self.rows(client, client.variable('Base'))
        self.assertEqual(self.names(rows), [
            'computed', 'failing', 'fine', 'limit', '_hidden', '(functions)', '(special names)'])

    def test_a_property_that_raises_shows_that_as_its_value(self):
        client = self.stopped()
        rows = self.rows(client, client.variable('base'))
        for name, value in ('failing', 'ValueError: no value'), ('fine', '5'):
            row = self.named(rows, name)
            self.assertEqual(row['presentationHint'], {'kind': 'property', 'lazy': True})
            shown = self.rows(client, row)
            self.assertEqual([(one['name'], one['value']) for one in shown], [(name, value)])

    def test_a_named_tuple_has_its_fields(self):
        client = self.stopped()
        point = client.variable('point')
        self.assertEqual(point['value'], "Point(x=1, y='two')")
        self.assert_not_in('indexedVariables', point)
        rows = self.rows(client, point)
        self.assertEqual([(one['name'], one['value'], one['evaluateName']) for one in rows[:2]],
                         [('x', '1', 'point.x'), ('y', "'two'", 'point.y')])
        self.assertEqual(self.names(rows[2:]), GROUPS)
        self.assertEqual(self.refusal(client, point, 'x', '2'),
                         'x cannot be changed: it is part of a Point')

    # How they are shown.

    def test_parts_say_of_what_kind_they_are(self):
        client = self.stopped()
        rows = self.rows(client, {'variablesReference': client.scope()})
        for name, hint in (
                ('Base', {'kind': 'class'}), ('Old', {'kind': 'class'}),
                ('calls', {'kind': 'data'}),
                ('word', {'kind': 'data', 'attributes': ['rawString']}),
                ('_private', {'kind': 'data', 'attributes': ['rawString'],
                              'visibility': 'private'})):
            self.assertEqual(self.named(rows, name)['presentationHint'], hint)
        fields = self.rows(client, client.variable('point'))
        self.assertEqual(self.named(fields, 'y')['presentationHint'],
                         {'kind': 'data', 'attributes': ['rawString', 'readOnly']})
        answer = client.ask('evaluate', expression='word', context='watch',
                            frameId=client.top()['id'])
        self.assertEqual(answer['presentationHint'], {'attributes': ['rawString']})

    def test_unicode_strings_show_their_characters(self):
        client = self.stopped()
        shown = u"u'\xe9\u20ac\\x07\\u200b\\\\x'"
        self.assertEqual(client.variable('word')['value'], shown)
        self.assertEqual(client.evaluate('[word, _private]'), u"[%s, 'b\\xc3\\xa9']" % shown)
        self.assertEqual(client.evaluate('{word: 1}'), u'{%s: 1}' % shown)
        self.assertEqual(client.evaluate(r"u'\U0001f600\ud800'"), u"u'\U0001f600\\ud800'")
        # The clipboard has what a program can be made of.
        self.assertEqual(client.evaluate('word', 'clipboard'), r"u'\xe9\u20ac\x07\u200b\\x'")

    def test_numbers_are_shown_as_the_client_likes(self):
        client = self.stopped()
        shown = '[0xa, 0xffL, {-0x1: 0x10}, True, 1.5]'
        in_hex = {'hex': True}
        frame = client.top()['id']
        rows = client.variables(client.scope(), format=in_hex)
        numbers = self.named(rows, 'numbers')
        self.assertEqual(numbers['value'], shown)
        self.assertEqual([one['value'] for one in self.rows(client, numbers, format=in_hex)],
                         ['0xa', '0xffL', '{-0x1: 0x10}', 'True', '1.5'])
        for context in 'watch', 'repl', 'hover':
            self.assertEqual(client.ask('evaluate', expression='numbers', context=context,
                                        frameId=frame, format=in_hex)['result'], shown)
        self.assertEqual(client.ask('setExpression', expression='calls', value='16',
                                    frameId=frame, format=in_hex)['value'], '0x10')
        self.assertEqual(client.ask('setVariable', variablesReference=client.scope(), name='calls',
                                    value='17', format=in_hex)['value'], '0x11')
        self.assertEqual(client.variable('calls')['value'], '17')

    # Changes.

    def test_items_of_sets_and_of_what_is_nested_are_set_where_that_can_be(self):
        client = self.stopped('# return')
        some = client.variable('some')
        self.assertEqual(self.set(client, some, '[0]', '9'), '9')
        self.assertEqual(client.evaluate('some'), 'set([9])')
        self.assertEqual(self.refusal(client, some, '[0]', '[]'),
                         "TypeError: unhashable type: 'list'")
        self.assertEqual(client.evaluate('some'), 'set([9])')
        self.assertEqual(self.refusal(client, client.variable('fixed'), '[0]', '1'),
                         '[0] cannot be changed: it is part of a frozenset')
        nested = client.variable('nested')
        self.assertEqual(self.refusal(client, nested, '[0]', '1'),
                         '[0] cannot be changed: it is part of a tuple')
        items, table = self.rows(client, nested)
        self.set(client, items, '[0]', '5')
        inner = self.rows(client, table)[0]
        self.assertEqual(self.refusal(client, inner, '[1]', '1'),
                         '[1] cannot be changed: it is part of a tuple')
        for part in self.rows(client, inner):
            self.set(client, part, '[0]', '6')
        self.assertEqual(client.evaluate('nested[0], nested[1]["k"]'), '([5], (set([6]), [6]))')
        self.set(client, table, "'k'", '7')
        self.assertEqual(client.evaluate('nested'), "([5], {'k': 7})")
