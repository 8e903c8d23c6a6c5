"""The values that calls have returned, as an editor is shown them after a step."""

import dap_session

PROGRAM = '''\
import textwrap

class Thing(object):
    alive = []
    def __init__(self):
        self.alive.append(self.__class__)
    def __del__(self):
        self.alive.pop()

def double(number):
    return number * 2  # double

def fail():
    raise ValueError

def outer(number):
    found = double(number)  # inner
    return found + 1

def thing():
    return Thing()

double(double(1)), outer(5)  # many
thing()  # thing
gone = not Thing.alive  # gone
outer(1)  # outer
textwrap.dedent('a')  # library
try:
    double(7), fail()  # fail
except ValueError:
    pass  # handler
sorted([2, 1], key=double)  # sort
print 'end'  # end
'''


class ReturnedTest(dap_session.TestCase):

    def stopped(self, mark, **arguments):
        client = self.attach(self.serve(PROGRAM, '--wait'), mark, **arguments)
        client.stopped()
        return client

    def returned(self, client):
        return [(shown['name'][len('(return) '):], shown['value'])
                for shown in client.variables(client.scope())
                if shown['name'].startswith('(return) ')]

    def test_after_next(self):
        client = self.stopped('# many')
        self.assertEqual(self.returned(client), [])
        client.step()
        self.assertEqual(self.returned(client), [('double', '2'), ('double', '4'), ('outer', '11')])
        self.assertEqual(client.variables(client.scope())[0]['name'], '(return) double')

    def test_after_step_in_that_came_back(self):
        client = self.stopped('# library')
        client.step('stepIn')
        self.assertEqual(self.returned(client), [('dedent', "'a'")])

    def test_after_step_out_and_at_the_next_line(self):
        client = self.stopped('# inner')
        client.step()
        self.assertEqual(self.returned(client), [('double', '10')])
        client.step('stepOut')
        self.assertEqual(self.returned(client), [('outer', '11')])
        client.step()
        self.assertEqual(self.returned(client), [('outer', '11')])

    def test_what_c_code_calls_counts(self):
        client = self.stopped('# sort')
        client.step()
        self.assertEqual(self.returned(client), [('double', '4'), ('double', '2')])

    def test_not_what_ended_by_an_exception(self):
        client = self.stopped('# fail')
        client.step()
        self.assertEqual(self.returned(client), [('double', '14')])

    def test_they_cannot_be_changed(self):
        client = self.stopped('# outer')
        client.step()
        shown = client.variables(client.scope())[0]
        self.assertEqual(shown['presentationHint']['attributes'], ['readOnly'])
        self.assertEqual(client.refusal(
            'setVariable', variablesReference=client.scope(), name=shown['name'], value='1'),
            '(return) outer cannot be changed')

    def test_nothing_is_kept_when_the_program_goes_on(self):
        client = self.stopped('# thing')
        client.step()
        self.assertEqual([name for name, _ in self.returned(client)], ['thing'])
        self.assertEqual(client.evaluate('len(Thing.alive)'), '1')
        client.step()
        self.assertEqual(client.evaluate('gone'), 'True')

    def test_nothing_is_kept_or_shown_where_that_is_not_wanted(self):
        client = self.stopped('# inner', showReturnValue=False)
        client.step()
        self.assertEqual(self.returned(client), [])
        client.step('stepOut')
        self.assertEqual(self.returned(client), [])
        client.step()
        client.step()
        self.assertEqual(client.evaluate('len(Thing.alive)'), '0')
