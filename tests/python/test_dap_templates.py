"""Templates of Jinja2 as clients see them."""

import os

import dap_session
import template_session

PATH = template_session.engine_path('jinja2')

PROGRAM = '''\
import jinja2
env = jinja2.Environment(loader=jinja2.FileSystemLoader(%r))
def view():
    return env.get_template('page.html').render(items=[{'price': 3}, {'price': 5}])  # here
print view()
'''
PAGE = '''\
{% for item in items %}
  {% set double = item.price * 2 %}
  {{ double }}
{% endfor %}
'''


class TemplatesTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        if PATH is None:
            self.skip('the host cannot import Jinja2')
        self.before = os.environ.get('PYTHONPATH', '')
        os.environ['PYTHONPATH'] = os.pathsep.join(PATH + [self.before])
        self.page = self.script(PAGE, 'page.html')

    def tearDown(self):
        if PATH is not None:
            os.environ['PYTHONPATH'] = self.before
        dap_session.TestCase.tearDown(self)

    def begun(self, breakpoints=({'line': 3},), **arguments):
        program = self.serve(PROGRAM % self.folder, '--wait')
        client = self.connect(program)
        client.begin(arguments)
        self.breakpoints = client.ask(
            'setBreakpoints', source={'path': self.page}, breakpoints=list(breakpoints))
        self.break_at(client, program, '# here')
        client.ask('configurationDone')
        client.stopped()
        return client

    def test_breakpoint_with_a_condition_of_the_language(self):
        client = self.begun([{'line': 3, 'condition': 'item.price is odd and item.price > 3'}])
        client.go()
        self.assert_in('breakpoint', client.stopped())
        self.assertEqual((client.top()['line'], client.top()['source']['path']), (3, self.page))
        self.assertEqual(client.evaluate('double'), '10')

    def test_breakpoints_are_told_where_they_have_moved_to(self):
        self.page = self.script('text\n\n{{ items }}\ntext\n', 'page.html')
        client = self.begun([{'line': 1}, {'line': 4}])
        self.assertEqual([(one['verified'], one['line']) for one in self.breakpoints['breakpoints']],
                         [(True, 1), (True, 4)])
        client.go()
        client.stopped()
        told = [client.event('breakpoint')['breakpoint'] for _ in range(2)]
        self.assertEqual([(one['verified'], one['line']) for one in told], [(True, 3), (False, 4)])
        self.assert_in('no code from line 4', told[1]['message'])
        self.assertEqual(client.top()['line'], 3)

    def test_log_message_has_values_of_the_template(self):
        client = self.begun([{'line': 3, 'logMessage': 'it is {double} of {items|length}'}])
        client.go()
        self.assertEqual([client.event('output')['output'] for _ in range(2)],
                         ['it is 6 of 2\n', 'it is 10 of 2\n'])

    def test_variables_can_be_watched_and_changed(self):
        client = self.begun()
        client.go()
        client.stopped()
        self.assertEqual(sorted([shown['name'] for shown in client.variables(client.scope())]),
                         ['double', 'item', 'items'])
        item = client.variable('item')
        price = client.variables(item['variablesReference'])[-1]
        self.assertEqual(client.evaluate(price['evaluateName']), '3')
        client.ask('setVariable', variablesReference=client.scope(), name='double', value='1 + 4')
        client.ask('setExpression', frameId=client.top()['id'], expression='item["price"]',
                   value='99')
        self.assertEqual((client.evaluate('double'), client.evaluate('item["price"]')),
                         ('5', '99'))
        self.assertEqual(client.evaluate('double = 7', 'repl'), '')
        self.assertEqual(client.evaluate('double|string', 'repl'), "u'7'")
        self.assertEqual(client.refusal('setExpression', frameId=client.top()['id'],
                                        expression='nothing', value='1'),
                         'LookupError: there is no variable nothing here')

    def test_steps_in_and_out(self):
        client = self.begun([])
        client.go('stepIn')
        client.stopped()
        while client.top()['source'].get('path') != self.page:
            client.go('stepIn')
            client.stopped()
        lines = []
        while client.top()['source'].get('path') == self.page:
            lines.append(client.top()['line'])
            client.go('next')
            client.stopped()
        self.assertEqual(lines, [1, 2, 3, 1, 2, 3, 1])
        self.assertEqual(os.path.basename(client.top()['source']['path']), 'prog.py')

    def test_turned_off(self):
        client = self.begun(jinja=False)
        client.go()
        # The module that the template is made into.
        self.assertEqual(client.stopped(), 'breakpoint <module>:3')
