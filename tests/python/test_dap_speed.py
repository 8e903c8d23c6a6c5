"""How long an editor waits. The limits are generous, but nothing that polls would keep them.

The best of many tries counts: the machine may be busy with something else.
"""

import time

import dap_session

COUNTING = '''
items = range(1000000)
table = dict.fromkeys(items)
class Items(list):
    pass
own = Items(items)
print 'ready'
running = True
number = 0
while running:
    number += 1  # loop
    time = number  # next
'''
DEEP = '''
def deep(number):
    if number:
        return deep(number - 1)
    return number  # deep
for _ in range(100):
    deep(899)
'''


class SpeedTest(dap_session.TestCase):

    def assert_faster(self, measure, limit, per=1):
        """What is called takes at most so many seconds for each of `per`, once in half a minute."""
        best = 1e9
        end = time.time() + 30
        while best >= limit and time.time() < end:
            begun = time.time()
            measured = measure()
            if measured is None:
                measured = time.time() - begun
            best = min(best, measured / per)
        self.assertTrue(best < limit, '%.1f ms' % (best * 1000))

    def launched(self, text, *marks):
        """A client of the adapter, and with it of the whole chain, stopped at the first mark."""
        path = self.script(text)
        adapter = self.opened(dap_session.Adapter())
        adapter.launch(program=path)
        lines = open(path).read().splitlines()
        adapter.ask('setBreakpoints', source={'path': path}, breakpoints=[
            {'line': number} for number, line in enumerate(lines, 1)
            for mark in marks if mark in line])
        adapter.ask('configurationDone')
        adapter.stopped()
        return adapter

    def step(self, client):
        client.request('next', {'threadId': client.thread})
        client.event('stopped')

    def test_a_stop_is_told_within_20_ms(self):
        client = self.launched(COUNTING, '# loop')

        def go_on_to_the_next_stop():
            client.request('continue', {'threadId': client.thread})
            client.event('stopped')
        self.assert_faster(go_on_to_the_next_stop, 0.020)

    def test_steps_through_the_whole_chain_200_a_second(self):
        client = self.launched(COUNTING, '# loop')
        client.ask('setBreakpoints', source=client.top()['source'], breakpoints=[])

        def steps():
            for _ in range(20):
                self.step(client)
        self.assert_faster(steps, 1.0 / 200, 20)

    def test_steps_with_all_that_an_editor_asks_at_each(self):
        client = self.launched(COUNTING, '# loop')
        client.ask('setBreakpoints', source=client.top()['source'], breakpoints=[])

        def step():
            self.step(client)
            client.ask('threads')
            frame = client.top()
            for scope in client.ask('scopes', frameId=frame['id'])['scopes']:
                client.variables(scope['variablesReference'])
        self.assert_faster(step, 0.090)

    def test_a_stack_of_900_frames_costs_what_is_shown(self):
        client = self.launched(DEEP, '# deep')

        def show(levels):
            stack = client.ask('stackTrace', threadId=client.thread, levels=levels)
            self.assertEqual((stack['totalFrames'], len(stack['stackFrames'])), (901, levels))
        self.assert_faster(lambda: show(20), 0.030)
        self.assert_faster(lambda: show(901), 1.0)

    def test_a_million_items_cost_what_is_shown(self):
        client = self.launched(COUNTING, '# loop')
        held = dict((name, client.variable(name, 'Locals')) for name in ('items', 'own', 'table'))
        for name, start in (('items', 0), ('items', 999900), ('own', 500000), ('table', 0)):
            self.assertEqual(held[name]['indexedVariables'], 1000000)

            def show():
                page = client.variables(held[name]['variablesReference'], filter='indexed',
                                        start=start, count=100)
                self.assertEqual(len(page), 100)
                self.assertEqual(page[0]['name'], '[%d]' % start if name != 'table' else '0')
            self.assert_faster(show, 0.080)
        # All that the program has, and the beginning of each.
        self.assert_faster(lambda: client.variables(client.scope('Locals')) and None, 0.080)

    def test_all_items_at_once_are_not_sent(self):
        client = self.launched(COUNTING, '# loop')
        for name in 'items', 'own', 'table':
            page = client.variables(client.variable(name, 'Locals')['variablesReference'])
            self.assertTrue(len(page) < 1000, len(page))
            self.assertEqual(page[-1]['indexedVariables'] + len(page) - 1, 1000000)

    def test_a_running_program_is_not_slowed_down_by_a_client_that_waits(self):
        # The network thread wakes up for nothing: it has used no time.
        program = self.serve('''
import os, time
print 'ready'
while not os.path.exists(__file__ + '.end'):
    time.sleep(0.2)
before = os.times()[:2]
''' + 'time.sleep(1)\n' + '''
print sum(os.times()[:2]) - sum(before) < 0.05
''')
        program.wrote('ready')
        client = self.attach(program)
        open(program.path + '.end', 'w').close()
        self.assertEqual(program.ended(), ('ready\nTrue\n', 0))
        client.read_all()

    def test_a_breakpoint_set_while_the_program_runs_holds_at_once(self):
        program = self.serve(COUNTING)
        program.wrote('ready')
        client = self.attach(program)

        def until_it_stops():
            self.break_at(client, program, '# loop')
            client.event('stopped')

        def try_it():
            begun = time.time()
            until_it_stops()
            seconds = time.time() - begun
            self.break_at(client, program)
            client.ask('continue', threadId=1)
            return seconds
        self.assert_faster(try_it, 0.250)
