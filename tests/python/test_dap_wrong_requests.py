"""Requests with arguments of every wrong kind: each is answered, and nothing else happens."""

import dap_session

PROGRAM = '''
def work(number):
    items = [number, {'a': number}]  # work
    return items

for number in range(3):
    work(number)
print 'over'
'''
# Of each request, arguments that are right but for what takes their place.
REQUESTS = {
    'setBreakpoints': {'source': {'path': 'x.py'}, 'breakpoints': [
        {'line': 1, 'condition': 'x', 'hitCondition': '1', 'logMessage': 'x'}]},
    'setFunctionBreakpoints': {'breakpoints': [
        {'name': 'no_such_function', 'condition': 'x', 'hitCondition': '1'}]},
    'setExceptionBreakpoints': {
        'filters': ['raised'], 'filterOptions': [{'filterId': 'raised', 'condition': 'KeyError'}],
        'exceptionOptions': [{'path': [{'names': ['KeyError']}], 'breakMode': 'never'}]},
    'setPydevdSourceMap': {'source': {'path': 'x.ipynb'}, 'pydevdSourceMaps': [
        {'line': 1, 'endLine': 2, 'runtimeSource': {'path': '/x.py'}, 'runtimeLine': 1}]},
    'exceptionInfo': {'threadId': 1},
    'gotoTargets': {'source': {'path': 'x.py'}, 'line': 1},
    'goto': {'threadId': 1, 'targetId': 1},
    'stepInTargets': {'frameId': 1},
    'stackTrace': {'threadId': 1, 'startFrame': 0, 'levels': 1, 'format': {
        'hex': True, 'parameters': True, 'parameterValues': True, 'includeAll': True}},
    'scopes': {'frameId': 1},
    'variables': {'variablesReference': 1, 'filter': 'named', 'start': 0, 'count': 1},
    'setVariable': {'variablesReference': 1, 'name': 'x', 'value': '1'},
    'setExpression': {'expression': 'nothing.x', 'value': '1', 'frameId': 1},
    'evaluate': {'expression': '1', 'context': 'watch', 'frameId': 1},
    'completions': {'text': 'x', 'column': 1, 'line': 1, 'frameId': 1},
    'modules': {'startModule': 0, 'moduleCount': 1},
    'loadedSources': {},
    'source': {'source': {'path': 'x.py', 'sourceReference': 1}, 'sourceReference': 1},
    'threads': {},
    'cancel': {'requestId': 1},
    'pause': {'threadId': 1},
    'initialize': {'linesStartAt1': True, 'pathFormat': 'path'},
    'attach': {'justMyCode': True, 'evaluationTimeout': 1, 'stopAllThreads': True, 'rules': [
        {'path': 'x', 'include': True}, {'module': 'x', 'include': False}], 'pathMappings': [
        {'localRoot': '/a', 'remoteRoot': '/b'}]},
    'launch': {'program': 'x.py'},
    'configurationDone': {},
}
# Requests that give a text of the client's to the interpreter, whose complaints are answers, too.
EVALUATING = ('evaluate', 'setVariable', 'setExpression', 'completions')
# A letter that is none in any encoding of few bits, and one alone of a pair.
WRONG = (None, True, False, 0, -1, 1.5, 1 << 31, 10 ** 30, -10 ** 30, 1e300, '', 'x', u'\xe9\u20ac',
         u'\ud800', '\0', 'x' * 5000, [], [None], [[]], [0], ['x'], {}, {'x': None}, [{}],
         [{'x': 1}])


def variations(arguments):
    """Copies of the value, each with one part that something wrong stands in the place of."""
    for wrong in WRONG:
        yield wrong
    if isinstance(arguments, dict):
        for name in arguments:
            without = dict(arguments)
            del without[name]
            yield without
            for part in variations(arguments[name]):
                yield dict(arguments, **{name: part})
    elif isinstance(arguments, list):
        for part in variations(arguments[0]):
            yield [part]


class WrongRequestsTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.program = self.serve(PROGRAM, '--wait')
        self.client = self.attach(self.program, '# work')

    def assert_answered(self, requests):
        """Each of these (command, arguments), by the time that all have been sent."""
        numbers = []
        for command, arguments in requests:
            numbers.append(self.client.request(command, arguments))
            if len(numbers) % 50 == 0:
                self.client.ask('threads')
        for number, (command, arguments) in zip(numbers, requests):
            answer = self.client.answer(number)
            self.assertEqual(answer['command'], command)
            if not answer['success'] and command not in EVALUATING:
                # What goes wrong is foreseen, and not an error of the server's own.
                for name in ('AttributeError', 'TypeError', 'KeyError', 'IndexError',
                             'OverflowError'):
                    if name in answer['message']:
                        self.fail('%s of %r: %s' % (command, arguments, answer['message']))

    def assert_unharmed(self):
        client = self.client
        self.break_at(client, self.program)
        client.ask('setFunctionBreakpoints', breakpoints=[])
        client.ask('setExceptionBreakpoints', filters=[])
        self.assertEqual(client.evaluate('number'), '0')
        client.go()
        self.assertEqual(client.event('exited'), {'exitCode': 0})
        self.assertEqual(self.program.ended(), ('over\n', 0))
        self.assertEqual(self.program.errors(), '')

    def test_every_request_with_wrong_arguments_while_stopped(self):
        self.client.stopped()
        for command in sorted(REQUESTS):
            self.assert_answered([(command, arguments)
                                  for arguments in variations(REQUESTS[command])])
        self.assert_unharmed()

    def test_requests_to_go_on_with_wrong_arguments(self):
        self.client.stopped()
        wrong = [arguments for arguments in variations({'threadId': 5})
                 if arguments != {'threadId': 1}]
        for command in 'next', 'stepIn', 'stepOut':
            self.assert_answered([(command, arguments) for arguments in wrong])
        # Any thread will do for this one.
        self.assert_answered([('continue', arguments) for arguments in wrong
                              if not isinstance(arguments, dict)
                              or type(arguments.get('threadId')) is not int])
        self.assert_unharmed()

    def test_every_request_while_running(self):
        self.client.stopped()
        self.client.ask('evaluate', context='repl', expression='number = 5')
        endless = self.client.request('evaluate', {
            'context': 'repl', 'expression': 'while number == 5: pass'})
        for command in sorted(REQUESTS):
            if command in ('cancel', 'pause'):
                continue
            self.client.request(command, REQUESTS[command])
        self.client.ask('cancel', requestId=endless)
        self.assertEqual(self.client.answer(endless)['message'], 'cancelled')
        self.assert_answered([(command, REQUESTS[command]) for command in sorted(REQUESTS)
                              if command != 'pause'])
        self.client.ask('evaluate', context='repl', expression='number = 0')
        self.assert_unharmed()

    def test_any_names_of_requests(self):
        self.client.stopped()
        names = ['', 'x', '__init__', '_stop', 'runInTerminal', 'Evaluate', u'\xe9', 'x' * 10000,
                 'restart', 'restartFrame', 'stepBack', 'readMemory', 'setDataBreakpoints']
        for name in names:
            self.assertEqual(self.client.refusal(name), 'there is no such request')
        self.assert_unharmed()
