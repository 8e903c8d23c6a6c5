'use strict';
const test = require('node:test');
const assert = require('node:assert');
const { withClient, program, line } = require('./lib/client');

const COUNTING = program(`
def double(number):
    twice = number * 2  # in double
    return twice  # return

total = 0  # first
for number in range(5):
    total += double(number)  # call
print total  # print
`);

test('a launched program runs to its end with its output and exit code', () =>
    withClient(async (client) => {
        const file = program('import sys\nprint "hello"\nprint >>sys.stderr, "oh"\nsys.exit(3)\n');
        await client.launch({ program: file });
        assert.equal((await client.next('exited')).exitCode, 3);
        assert.equal(await client.outputs('stdout'), 'hello\n');
        assert.match(client.kept.filter((message) => message.event === 'output'
            && message.body.category === 'stderr').map((message) => message.body.output).join(''),
        /^oh\n/);
        const begun = await client.next('process');
        assert.equal(begun.startMethod, 'launch');
        assert.equal(begun.name, file);
    }));

test('a breakpoint stops the program, which then goes on', () =>
    withClient(async (client) => {
        const call = line(COUNTING, '# call');
        await client.launch({ program: COUNTING }, async () => {
            const [breakpoint] = await client.breakAt(COUNTING, call);
            assert.equal(breakpoint.verified, true);
            assert.equal(breakpoint.line, call);
        });
        const stopped = await client.next('stopped');
        assert.equal(stopped.reason, 'breakpoint');
        assert.equal(stopped.allThreadsStopped, true);
        assert.equal(await client.place(stopped.threadId), `<module>:${call}`);
        assert.equal((await client.evaluate('number')).result, '0');
        await client.breakAt(COUNTING);
        await client.go();
        assert.equal(await client.outputs(), '20\n');
    }));

test('stepping goes over, into and out of calls', () =>
    withClient(async (client) => {
        const at = (mark) => line(COUNTING, mark);
        await client.launch({ program: COUNTING, stopOnEntry: true });
        assert.equal(await client.stop(), `entry <module>:1`);
        assert.equal(await client.step('next'), `step <module>:${at('# first')}`);
        assert.equal(await client.step('next'), `step <module>:${at('# first') + 1}`);
        assert.equal(await client.step('next'), `step <module>:${at('# call')}`);
        assert.equal(await client.step('stepIn'), `step double:${at('# in double')}`);
        assert.equal(await client.step('next'), `step double:${at('# return')}`);
        // The rest of the caller's line is still to be run.
        assert.equal(await client.step('next'), `step <module>:${at('# call')}`);
        assert.equal((await client.variable('(return) double')).value, '0');
        assert.equal(await client.step('next'), `step <module>:${at('# first') + 1}`);
        assert.equal(await client.step('stepIn'), `step <module>:${at('# call')}`);
        assert.equal(await client.step('stepIn'), `step double:${at('# in double')}`);
        assert.equal(await client.step('stepOut'), `step <module>:${at('# call')}`);
        await client.go();
        assert.equal(await client.outputs(), '20\n');
    }));
