"""One session of several processes: whose numbers are whose, who is asked what, who answers."""

import harness
from sorrel.adapter import merging, numbers
from sorrel.adapter.arrivals import Arrival, arrivals
from sorrel.adapter.numbers import FIRST_GIVEN

SOURCE = {'path': u'/a.py'}


class Side(object):
    """What a process, or the client, has been sent."""

    def __init__(self):
        self.sent = []

    def take(self):
        sent = list(self.sent)
        del self.sent[:]
        return sent

    def asked(self, command):
        """The last request of this name."""
        return [message for message in self.sent if message.get('command') == command][-1]


class MergingTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.client = Side()
        self.refusals = []
        self.session = merging.Merging(self.client.sent.append)
        self.now = 0
        self.seq = 0
        self.sides = {}
        side = Side()
        begin = {'type': 'request', 'seq': 100, 'command': u'launch', 'arguments': {}}
        self.first = self.session.begin(side.sent.append, {'adapterID': u'x'}, begin)
        self.sides[self.first] = side
        self.answer(self.first, 'initialize', {})
        self.answer(self.first, 'launch')
        self.ask('configurationDone')
        self.answer(self.first, 'configurationDone')
        self.told()

    # Saying things.

    def child(self, pid=4711, threads=((1, u'MainThread'),)):
        """One that takes part."""
        process = self.unready(pid)
        self.event(process, 'initialized')
        self.know_threads(threads)
        while self.sides[process].sent:
            self.answer(process, self.sides[process].sent[0]['command'], {})
        self.told()
        return process

    def unready(self, pid=4711):
        side = Side()
        process = self.session.add(side.sent.append, pid, u'worker.py', {}, {'justMyCode': False},
                                   self.refusals.append)
        self.sides[process] = side
        return process

    def know_threads(self, threads):
        for process in list(self.sides):
            if any(message['command'] == 'threads' for message in self.sides[process].sent):
                self.answer(process, 'threads', {'threads': [
                    {'id': number, 'name': name} for number, name in threads]})

    def ask(self, command, **arguments):
        self.seq += 1
        request = {'type': 'request', 'seq': self.seq, 'command': command, 'arguments': arguments}
        self.session.ask(request, self.now)
        return request

    def asked(self, process):
        """The commands that the process has been sent since the last time."""
        return [message['command'] for message in self.sides[process].sent]

    def answer(self, process, command, body=None, why=None):
        """The process answers the last request of this name; returns what it was asked with."""
        request = self.sides[process].asked(command)
        self.sides[process].sent.remove(request)
        response = {'type': 'response', 'seq': 1, 'request_seq': request['seq'],
                    'command': command, 'success': why is None}
        if why is not None:
            response['message'] = why
        if body is not None:
            response['body'] = body
        self.session.hear(process, response)
        return request.get('arguments')

    def event(self, process, told, **body):
        self.session.hear(process, {'type': 'event', 'seq': 1, 'event': told, 'body': body})

    def stop(self, process, thread=1, **more):
        self.event(process, 'stopped', **dict(
            {'reason': u'breakpoint', 'threadId': thread, 'allThreadsStopped': True}, **more))
        return self.told()[0]['body']['threadId']

    def told(self):
        return self.client.take()

    def told_events(self):
        return [(message['event'], message['body']) for message in self.told()
                if message['type'] == 'event']

    def only(self):
        """The one message that the client was told."""
        told = self.told()
        self.assertEqual(len(told), 1, told)
        return told[0]

    def refused(self):
        message = self.only()
        self.assertEqual(message['success'], False)
        return message['message']

    # Numbers.

    def test_where_lines_are_is_said_to_all_processes_and_to_late_ones(self):
        child = self.child()
        asked = self.ask('setPydevdSourceMap', source={'path': u'x'}, pydevdSourceMaps=[])
        for process in self.first, child:
            self.assertEqual(self.sides[process].asked('setPydevdSourceMap')['arguments'],
                             asked['arguments'])
            self.answer(process, 'setPydevdSourceMap')
        late = self.unready(4712)
        self.event(late, 'initialized')
        self.assertEqual(self.sides[late].asked('setPydevdSourceMap')['arguments'],
                         asked['arguments'])

    def test_breakpoints_in_a_source_with_a_reference_go_to_others_by_its_name(self):
        child = self.child()
        number = self.session._numbers.given(child, numbers.SOURCE, 3)
        for source, named in (({'name': u'<made>'}, u'<made>'),
                              ({'name': u'b.py', 'path': u'/b.py'}, u'/b.py')):
            self.ask('setBreakpoints', source=dict(source, sourceReference=number))
            self.assertEqual(self.sides[self.first].asked('setBreakpoints')['arguments'],
                             {'source': {'path': named}})
            self.assertEqual(self.sides[child].asked('setBreakpoints')['arguments'],
                             {'source': dict(source, sourceReference=3)})

    def test_a_file_that_several_processes_have_references_to_is_listed_once(self):
        child = self.child()
        self.ask('loadedSources')
        for process in self.first, child:
            self.answer(process, 'loadedSources', {'sources': [
                {'name': u'b.py', 'path': u'/b.py', 'sourceReference': 1}]})
        self.assertEqual(self.client.sent[-1]['body']['sources'], [
            {'name': u'b.py', 'path': u'/b.py', 'sourceReference': 1}])

    def test_the_first_program_keeps_its_numbers_and_all_else_of_its_messages(self):
        for name, body in (
                ('stopped', {'reason': u'step', 'threadId': 1, 'allThreadsStopped': True}),
                ('thread', {'reason': u'started', 'threadId': 7}),
                ('output', {'output': u'x', 'variablesReference': 5,
                            'source': {'sourceReference': 3}}),
                ('module', {'reason': u'new', 'module': {'id': u'm', 'name': u'm'}}),
                ('initialized', {}), ('process', {'name': u'x', 'systemProcessId': 1}),
                ('exited', {'exitCode': 3})):
            self.event(self.first, name, **body)
            told = self.only()
            self.assertEqual((told['type'], told['event'], told['body']), ('event', name, body))
        self.ask('stackTrace', threadId=1)
        body = {'stackFrames': [{'id': 9, 'moduleId': u'm', 'source': {'sourceReference': 1}}]}
        self.assertEqual(self.answer(self.first, 'stackTrace', body), {'threadId': 1})
        self.assertEqual(self.only()['body'], body)

    def test_all_numbers_of_children_are_told_apart_and_come_back(self):
        children = [self.child(4711), self.child(4712)]
        seen = set()
        for child in children:
            thread = self.stop(child)
            self.ask('stackTrace', threadId=thread)
            self.assertEqual(self.answer(child, 'stackTrace', {'stackFrames': [
                {'id': 1, 'moduleId': u'm', 'source': {'sourceReference': 1}}]}), {'threadId': 1})
            frame = self.only()['body']['stackFrames'][0]
            self.assertEqual(frame['moduleId'], u'm [%d]' % child.pid)
            self.ask('scopes', frameId=frame['id'])
            self.assertEqual(self.answer(child, 'scopes', {'scopes': [
                {'name': u'Locals', 'variablesReference': 1}]}), {'frameId': 1})
            variables = self.only()['body']['scopes'][0]['variablesReference']
            found = [thread, frame['id'], frame['source']['sourceReference'], variables]
            for command, arguments, body in (
                    ('variables', {'variablesReference': variables},
                     {'variables': [{'name': u'a', 'variablesReference': 2},
                                    {'name': u'b', 'variablesReference': 0}]}),
                    ('setVariable', {'variablesReference': variables, 'name': u'a'},
                     {'value': u'1', 'variablesReference': 3}),
                    ('evaluate', {'frameId': frame['id'], 'expression': u'x'},
                     {'result': u'1', 'variablesReference': 4}),
                    ('setExpression', {'frameId': frame['id']}, {'variablesReference': 5}),
                    ('gotoTargets', {'line': 1, 'source': SOURCE}, {'targets': [{'id': 6}]})):
                self.ask(command, **arguments)
                asked = self.answer(child, command, body)
                for name in 'variablesReference', 'frameId':
                    if name in arguments:
                        self.assertEqual(asked[name], 1)
                body = self.only()['body']
                found += [item.get('variablesReference', item.get('id')) for item in
                          body.get('variables', body.get('targets', [body]))]
            self.assertEqual(found.pop(5), 0)
            self.ask('goto', threadId=thread, targetId=found[-1])
            self.assertEqual(self.answer(child, 'goto'), {'threadId': 1, 'targetId': 6})
            self.ask('source', sourceReference=found[2], source={'sourceReference': found[2]})
            self.assertEqual(self.answer(child, 'source', {'content': u''}),
                             {'sourceReference': 1, 'source': {'sourceReference': 1}})
            self.ask('exceptionInfo', threadId=thread)
            self.assertEqual(self.answer(child, 'exceptionInfo'), {'threadId': 1})
            self.event(child, 'output', output=u'x', variablesReference=77,
                       source={'sourceReference': 78})
            body = self.told()[-1]['body']
            found += [body['variablesReference'], body['source']['sourceReference']]
            self.assertEqual(len(set(found)), len(found))
            self.assert_(all(FIRST_GIVEN <= number < 1 << 31 for number in found), found)
            self.assert_(not seen & set(found))
            seen.update(found)

    def test_a_large_number_of_the_first_is_no_number_of_a_child(self):
        child = self.child()
        thread = self.stop(child)
        self.event(self.first, 'output', output=u'x', variablesReference=thread)
        number = self.only()['body']['variablesReference']
        self.assertNotEqual(number, thread)
        self.ask('variables', variablesReference=number)
        self.assertEqual(self.answer(self.first, 'variables'), {'variablesReference': thread})

    def test_numbers_of_a_stop_lapse_when_the_process_goes_on(self):
        child = self.child(threads=((1, u'a'), (2, u'b')))
        count = self.session._numbers.count()
        for go_on in ('continue', 'next', 'stepIn', 'stepOut', 'event', 'all', 'next stop'):
            thread = self.stop(child)
            self.ask('stackTrace', threadId=thread)
            self.answer(child, 'stackTrace', {'stackFrames': [{'id': 1}]})
            frame = self.only()['body']['stackFrames'][0]['id']
            self.ask('evaluate', frameId=frame)
            self.answer(child, 'evaluate', {'variablesReference': 2})
            self.told()
            self.assertEqual(self.session._numbers.count(), count + 2)
            if go_on == 'event':
                self.event(child, 'continued', threadId=1)
            elif go_on == 'all':
                self.event(child, 'continued', threadId=2, allThreadsContinued=True)
            elif go_on == 'next stop':
                self.stop(child)
            else:
                self.ask(go_on, threadId=thread)
                self.answer(child, go_on, {})
            self.told()
            self.assertEqual(self.session._numbers.count(), count, go_on)
            self.ask('scopes', frameId=frame)
            self.assertEqual(self.refused(), 'the program has gone on since then')
            self.assertEqual(self.asked(child), [])

    def test_frames_of_a_thread_lapse_when_that_alone_goes_on(self):
        child = self.child(threads=((1, u'a'), (2, u'b')))
        thread = self.stop(child)
        frames = []
        for number in thread, self.session._numbers.given(child, numbers.THREAD, 2):
            self.ask('stackTrace', threadId=number)
            self.answer(child, 'stackTrace', {'stackFrames': [{'id': number % 100 + 1}]})
            frames.append(self.only()['body']['stackFrames'][0]['id'])
        self.event(child, 'continued', threadId=2, allThreadsContinued=False)
        self.told()
        self.ask('scopes', frameId=frames[0])
        self.assertEqual(self.told(), [])
        self.ask('scopes', frameId=frames[1])
        self.assertEqual(self.refused(), 'the program has gone on since then')

    def test_nothing_is_left_of_a_child_that_is_gone(self):
        for number in range(20):
            child = self.child(5000 + number)
            self.stop(child)
            self.event(child, 'module', reason=u'new', module={'id': u'm', 'name': u'm'})
            self.event(child, 'output', output=u'', variablesReference=3,
                       source={'sourceReference': 4})
            self.session.gone(child)
            self.told()
            self.assertEqual(self.session._numbers.count(), 0)
            self.assertEqual(self.session._numbers._known, {})
            del self.sides[child]

    def test_numbers_begin_anew_below_the_largest(self):
        given = numbers.Numbers()
        child = self.child()
        given._next = (1 << 31) - 1
        self.assertEqual([given.given(child, numbers.FRAME, own) for own in 1, 2, 3],
                         [(1 << 31) - 1, FIRST_GIVEN, FIRST_GIVEN + 1])
        given._next = (1 << 31) - 1
        self.assertEqual(given.given(child, numbers.FRAME, 4), FIRST_GIVEN + 2)

    def test_numbers_that_are_of_nothing_are_refused_and_asked_of_nobody(self):
        child = self.child()
        thread = self.stop(child)
        for command, arguments, why in (
                ('continue', {'threadId': FIRST_GIVEN + 999},
                 'there is no thread %d' % (FIRST_GIVEN + 999)),
                ('scopes', {'frameId': thread}, 'the program has gone on since then'),
                ('variables', {'variablesReference': thread}, 'the program has gone on since then'),
                ('source', {'sourceReference': thread}, 'its source is not known'),
                ('goto', {'threadId': 1, 'targetId': thread}, 'the program has gone on since then'),
                ('next', {'threadId': 1, 'frameId': 0, 'source': {'sourceReference': thread}},
                 'its source is not known')):
            self.ask(command, **arguments)
            self.assertEqual(self.refused(), why)
        self.event(child, 'output', output=u'', variablesReference=8)
        reference = self.only()['body']['variablesReference']
        self.ask('stackTrace', threadId=1, variablesReference=reference)
        self.assertEqual(self.refused(), 'these are numbers of more than one process')
        self.assertEqual((self.asked(child), self.asked(self.first)), ([], []))

    def test_arguments_of_wrong_kinds_are_the_programs_to_refuse(self):
        self.child()
        for wrong in None, 5, u'x', [], {'threadId': []}, {'threadId': -1}, {'threadId': True}, \
                {'frameId': {}}, {'source': 5}, {'source': {'path': 7}}, {'threadId': 1.5}:
            for command in merging.Merging(None)._ways.keys() + ['continue', 'scopes', 'nonsense']:
                if command == 'configurationDone':
                    continue
                self.seq += 1
                self.session.ask({'type': 'request', 'seq': self.seq, 'command': command,
                                  'arguments': wrong}, 0)
                for process, side in self.sides.items():
                    while side.sent:
                        self.answer(process, side.sent[0]['command'], why=u'no')
                self.assertEqual(self.only()['request_seq'], self.seq)

    # Stops.

    def test_a_stop_of_one_process_says_nothing_of_the_others(self):
        child = self.child(threads=((1, u'a'), (2, u'b')))
        for process in self.first, child:
            self.event(process, 'stopped', reason=u'step', threadId=1, allThreadsStopped=True)
            told = self.told_events()
            number, other = [self.session._numbers.given(process, numbers.THREAD, own)
                             for own in 1, 2]
            self.assertEqual(told, [
                ('stopped', {'reason': u'step', 'threadId': number, 'allThreadsStopped': False}),
                ('stopped', {'reason': 'pause', 'threadId': other, 'allThreadsStopped': False,
                             'preserveFocusHint': True})])
        for command in 'next', 'continue':
            self.ask(command, threadId=number)
            self.answer(child, command, {'allThreadsContinued': True})
            told = self.told()
            self.assertEqual(told[0]['type'], 'response')
            if command == 'continue':
                self.assertEqual(told[0]['body'], {'allThreadsContinued': False})
            self.assertEqual([message['body'] for message in told[1:]], [
                {'threadId': other, 'allThreadsContinued': False}])
            self.assertEqual(self.asked(self.first), [])
            self.stop(child)

    def test_threads_that_run_on_are_not_told_to_have_stopped(self):
        child = self.child(threads=((1, u'a'), (2, u'b')))
        self.event(child, 'stopped', reason=u'step', threadId=1, allThreadsStopped=False)
        self.assertEqual(len(self.told()), 1)

    def test_what_has_no_number_concerns_what_has_stopped_last(self):
        one, other = self.child(1), self.child(2)
        self.stop(one)
        self.stop(other)
        self.ask('evaluate', expression=u'x')
        self.answer(other, 'evaluate', {})
        self.event(other, 'continued', threadId=1)
        self.ask('evaluate', expression=u'x')
        self.answer(one, 'evaluate', {})
        self.session.gone(one)
        self.ask('evaluate', expression=u'x')
        self.answer(self.first, 'evaluate', {})

    def test_pause_is_for_the_thread_it_names_and_else_for_all(self):
        child = self.child()
        self.ask('pause', threadId=self.session._numbers.given(child, numbers.THREAD, 1))
        self.assertEqual(self.answer(child, 'pause'), {'threadId': 1})
        self.assertEqual(self.asked(self.first), [])
        self.told()
        for number in 0, 99, FIRST_GIVEN + 99:
            self.ask('pause', threadId=number)
            self.answer(child, 'pause')
            self.answer(self.first, 'pause')
            self.assertEqual(self.only()['success'], True)

    # Threads.

    def test_threads_are_those_of_all(self):
        child = self.child()
        number = self.session._numbers.given(child, numbers.THREAD, 1)
        self.ask('threads')
        self.know_threads([(1, u'MainThread')])
        self.assertEqual(self.only()['body'], {'threads': [
            {'id': 1, 'name': u'MainThread'}, {'id': number, 'name': u'MainThread [4711]'}]})

    def test_who_does_not_answer_is_not_waited_for_for_ever(self):
        child = self.child()
        self.ask('threads')
        self.answer(self.first, 'threads', {'threads': [{'id': 1, 'name': u'M'}]})
        self.now = merging.PATIENCE
        self.session.look(self.now)
        self.assertEqual(self.told(), [])
        self.session.look(self.now + 0.1)
        self.assertEqual([thread['name'] for thread in self.only()['body']['threads']],
                         [u'M', u'MainThread [4711]'])
        self.answer(child, 'threads', {'threads': []})
        self.session.look(self.now + 100)
        self.assertEqual(self.told(), [])
        self.assert_(not self.session.is_waiting())

    def test_a_single_program_is_waited_for(self):
        self.ask('threads')
        self.session.look(1000000)
        self.assertEqual(self.told(), [])

    def test_a_childs_end_is_its_threads(self):
        child = self.child(threads=((1, u'a'), (2, u'b')))
        first, second = [self.session._numbers.given(child, numbers.THREAD, own) for own in 1, 2]
        self.event(child, 'thread', reason=u'started', threadId=3)
        self.event(child, 'thread', reason=u'exited', threadId=3)
        self.assertEqual([body['reason'] for _, body in self.told_events()], ['started', 'exited'])
        for name in 'exited', 'process', 'initialized', 'capabilities':
            self.event(child, name)
        self.told()
        self.event(child, 'terminated')
        self.assertEqual(self.told_events(), [
            ('thread', {'reason': 'exited', 'threadId': first}),
            ('thread', {'reason': 'exited', 'threadId': second})])
        self.assert_(not self.session.has(child))
        self.event(child, 'output', output=u'x')
        self.assertEqual(self.told(), [])

    # Those that die.

    def test_whoever_is_gone_leaves_no_request_unanswered(self):
        for command in 'stackTrace', 'threads', 'setBreakpoints', 'evaluate', 'pause', 'modules', \
                'loadedSources', 'setExceptionBreakpoints', 'cancel', 'disconnect', 'terminate':
            child = self.child()
            thread = self.stop(child)
            arguments = {'threadId': thread} if command in ('stackTrace', 'pause') else {
                'source': SOURCE, 'breakpoints': []}
            request = self.ask(command, **arguments)
            if 'threads' in self.asked(self.first) or command in self.asked(self.first):
                self.answer(self.first, command, {
                    'threads': [], 'breakpoints': [], 'modules': [], 'sources': []})
            self.session.gone(child)
            del self.sides[child]
            answers = [message for message in self.told() if message['type'] == 'response']
            self.assertEqual([message['request_seq'] for message in answers], [request['seq']],
                             command)

    def test_when_the_first_is_gone_its_numbers_are_nobodys(self):
        child = self.child()
        thread = self.stop(child)
        self.ask('stackTrace', threadId=1)
        self.session.gone(self.first)
        told = self.told()
        self.assertEqual([message.get('success', message.get('event')) for message in told],
                         [False, 'thread'])
        for command, arguments in ('stackTrace', {'threadId': 1}), ('scopes', {'frameId': 1}):
            self.ask(command, **arguments)
            self.assertEqual(self.only()['success'], False)
        self.ask('stackTrace', threadId=thread)
        self.answer(child, 'stackTrace', {'stackFrames': []})
        self.assertEqual(self.only()['success'], True)
        self.ask('threads')
        self.know_threads([(1, u'M')])
        self.assertEqual(self.only()['body'], {'threads': [{'id': thread, 'name': u'M [4711]'}]})
        self.session.gone(child)
        self.told()
        self.ask('threads')
        self.assertEqual(self.refused(), 'there is no program')

    def test_a_child_that_refuses_is_let_go(self):
        child = self.unready()
        self.answer(child, 'attach', why=u'somebody debugs this program already')
        self.assertEqual(self.refusals, [u'somebody debugs this program already'])
        self.assertEqual(self.told(), [])
        self.assert_(not self.session.has(child))

    # Breakpoints.

    def set(self, *lines):
        return self.ask('setBreakpoints', source=SOURCE,
                        breakpoints=[{'line': line} for line in lines])

    def said(self, process, *breakpoints):
        """breakpoints: pairs of a number and whether it is verified."""
        self.answer(process, 'setBreakpoints', {'breakpoints': [
            {'id': id, 'verified': verified, 'line': 10 + id} for id, verified in breakpoints]})

    def test_a_breakpoint_is_verified_where_it_is_in_any_process(self):
        child = self.child()
        self.set(11, 12)
        self.said(child, (21, True), (22, False))
        self.assertEqual(self.told(), [])
        self.said(self.first, (1, False), (2, False))
        self.assertEqual(self.only()['body'], {'breakpoints': [
            {'id': 1, 'verified': True, 'line': 31}, {'id': 2, 'verified': False, 'line': 12}]})
        self.event(child, 'breakpoint', reason=u'changed',
                   breakpoint={'id': 22, 'verified': True, 'line': 12})
        self.assertEqual(self.told_events(), [('breakpoint', {
            'reason': 'changed', 'breakpoint': {'id': 2, 'verified': True, 'line': 12}})])
        self.event(self.first, 'breakpoint', reason=u'changed',
                   breakpoint={'id': 2, 'verified': True, 'line': 12})
        self.assertEqual(self.told(), [])
        self.event(child, 'stopped', reason=u'breakpoint', threadId=1, allThreadsStopped=False,
                   hitBreakpointIds=[22, 21, 99])
        self.assertEqual(self.only()['body']['hitBreakpointIds'], [2, 1])
        self.session.gone(child)
        self.assertEqual(self.told_events()[1:], [('breakpoint', {
            'reason': 'changed', 'breakpoint': {'id': 1, 'verified': False, 'line': 11}})])

    def test_a_source_of_one_process_has_its_breakpoints_there_alone(self):
        child = self.child()
        self.event(child, 'output', output=u'x', source={'sourceReference': 1})
        reference = self.only()['body']['source']['sourceReference']
        self.ask('setBreakpoints', source={'sourceReference': reference}, breakpoints=[{'line': 3}])
        self.assertEqual(self.asked(self.first), [])
        asked = self.answer(child, 'setBreakpoints', {'breakpoints': [{'id': 5, 'verified': True}]})
        self.assertEqual(asked['source'], {'sourceReference': 1})
        told, = self.only()['body']['breakpoints']
        self.event(child, 'stopped', reason=u'breakpoint', threadId=1, hitBreakpointIds=[5])
        self.assertEqual(self.only()['body']['hitBreakpointIds'], [told['id']])
        # Others know the file by its path, if it has one.
        self.ask('setBreakpoints', source={'path': u'/x', 'sourceReference': reference},
                 breakpoints=[])
        self.assertEqual(self.answer(self.first, 'setBreakpoints', {'breakpoints': []})['source'],
                         {'path': '/x'})
        self.assertEqual(self.answer(child, 'setBreakpoints', {'breakpoints': []})['source'],
                         {'path': '/x', 'sourceReference': 1})

    def test_lines_with_code_are_those_of_all_processes(self):
        child = self.child()
        self.ask('breakpointLocations', source={'path': u'/x'}, line=1, endLine=9)
        self.answer(self.first, 'breakpointLocations', why=u'cannot read it')
        self.answer(child, 'breakpointLocations', {'breakpoints': [{'line': 4}, {'line': 2}]})
        self.assertEqual(self.only()['body'], {'breakpoints': [{'line': 2}, {'line': 4}]})
        self.ask('breakpointLocations', source={'path': u'/x'}, line=1)
        for process in self.first, child:
            self.answer(process, 'breakpointLocations', why=u'cannot read it')
        self.assertEqual(self.refused(), 'cannot read it')

    def test_breakpoints_keep_their_numbers_when_the_first_is_gone(self):
        child = self.child()
        self.set(11, 12)
        self.said(self.first, (1, True), (2, True))
        self.said(child, (21, True), (22, True))
        self.session.gone(self.first)
        self.told()
        self.set(12, 13)
        self.said(child, (22, True), (23, True))
        ids = [one['id'] for one in self.only()['body']['breakpoints']]
        self.assertEqual(ids[0], 2)
        self.assert_(ids[1] >= FIRST_GIVEN)

    def test_a_late_answer_changes_what_was_told(self):
        child = self.child()
        self.set(11)
        self.said(self.first, (1, False))
        self.session.look(merging.PATIENCE + 1)
        self.assertEqual(self.only()['body']['breakpoints'][0]['verified'], False)
        self.said(child, (5, True))
        self.assertEqual(self.told_events()[0][1]['breakpoint']['id'], 1)
        # One that is late for what is not asked any more changes nothing.
        self.set(12)
        stale = self.sides[child].take()
        self.set(13)
        for answering in self.first, child:
            self.said(answering, (3, False))
        self.told()
        self.sides[child].sent += stale
        self.said(child, (4, True))
        self.assertEqual([message for message in self.told() if message['type'] == 'event'], [])

    def test_a_child_that_comes_late_hears_what_is_wanted(self):
        self.set(11)
        self.said(self.first, (1, False))
        self.set(12)
        self.said(self.first, (2, False))
        self.ask('setBreakpoints', source={'path': u'/b.py'}, breakpoints=[])
        self.said(self.first)
        self.ask('setFunctionBreakpoints', breakpoints=[{'name': u'f'}])
        self.answer(self.first, 'setFunctionBreakpoints', {'breakpoints': [
            {'id': 3, 'verified': False}]})
        self.ask('setExceptionBreakpoints', filters=[u'raised'])
        self.answer(self.first, 'setExceptionBreakpoints')
        self.ask('setExceptionBreakpoints', filters=5)
        self.answer(self.first, 'setExceptionBreakpoints', why=u'filters is no array')
        self.told()
        child = self.unready()
        self.assertEqual(self.asked(child), ['initialize', 'attach'])
        self.assertEqual(self.answer(child, 'attach'), {'justMyCode': False})
        self.sides[child].take()
        self.event(child, 'initialized')
        self.assertEqual(self.asked(child), [
            'setBreakpoints', 'setFunctionBreakpoints', 'setExceptionBreakpoints',
            'configurationDone', 'threads'])
        self.assertEqual(self.sides[child].asked('setExceptionBreakpoints')['arguments'],
                         {'filters': [u'raised']})
        self.assertEqual(self.told(), [])
        self.said(child, (1, True))
        self.assertEqual(self.told_events()[0][1]['breakpoint']['id'], 2)

    def test_a_child_waits_for_the_clients_configuration(self):
        session = merging.Merging(self.client.sent.append)
        first, child = Side(), Side()
        session.begin(first.sent.append, {}, {'seq': 1, 'command': u'launch'})
        process = session.add(child.sent.append, 5, u'w', {}, {}, self.refusals.append)
        session.hear(process, {'type': 'event', 'event': u'initialized'})
        self.assertEqual(len(child.take()), 2)
        session.ask({'seq': 2, 'command': u'configurationDone'}, 0)
        self.assertEqual(child.take()[0]['command'], 'configurationDone')

    # Others.

    def test_requests_are_cancelled_by_the_numbers_they_have_there(self):
        child = self.child()
        self.stop(child)
        request = self.ask('evaluate', expression=u'x')
        seq = self.sides[child].asked('evaluate')['seq']
        self.ask('cancel', requestId=request['seq'])
        self.assertEqual(self.answer(child, 'cancel'), {'requestId': seq})
        self.assertEqual(self.asked(self.first), [])
        self.answer(child, 'evaluate', why=u'cancelled')
        self.told()
        # What has been answered is nothing that a process could know.
        self.ask('cancel', requestId=request['seq'])
        self.assertEqual(self.answer(child, 'cancel'), {'requestId': 0})

    def test_the_end_of_the_session_is_everybodys(self):
        child, unready = self.child(), self.unready(4712)
        for arguments, ends in ({}, True), ({'terminateDebuggee': False}, False):
            request = self.ask('disconnect', **arguments)
            for process in child, unready:
                self.assertEqual(self.answer(process, 'disconnect'), {'terminateDebuggee': ends})
            self.assertEqual(self.told(), [])
            self.answer(self.first, 'disconnect')
            self.assertEqual(self.only()['success'], True)
        request = self.ask('terminate')
        self.session.finish(request)
        self.assertEqual(self.only()['success'], True)
        self.answer(self.first, 'terminate')
        self.assertEqual(self.told(), [])

    def test_modules_are_those_of_all_in_pages(self):
        child = self.child()
        self.ask('modules', startModule=1, moduleCount=1)
        for process in child, self.first:
            self.assertEqual(self.answer(process, 'modules', {'totalModules': 1, 'modules': [
                {'id': u'm', 'name': u'm'}]}), {})
        self.assertEqual(self.only()['body'], {
            'totalModules': 2, 'modules': [{'id': u'm [4711]', 'name': u'm'}]})


class ArrivalTest(harness.TestCase):

    def test_a_message_that_is_none_of_a_child_is_nothing(self):
        right = {'type': u'child', 'processId': 2, 'parentProcessId': 1, 'name': u'w',
                 'socket': u'/s'}
        self.assertEqual(arrivals(right), [Arrival(2, 1, u'w', u'/s')])
        for name, wrong in (('processId', 0), ('processId', True),
                            ('processId', 1 << 31), ('parentProcessId', None), ('name', 5),
                            ('socket', None)):
            self.assertEqual(arrivals(dict(right, **{name: wrong})), [])
