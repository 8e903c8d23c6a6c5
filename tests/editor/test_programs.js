'use strict';
// Other ways to come to a program, and programs of other kinds.

const test = require('node:test');
const path = require('node:path');
const { withEditor, listening, line, ROOT } = require('./lib/session');

// What ./morvik setup has brought for 2.7, Jinja2 among it.
const PACKAGES = path.join(ROOT, '.deps', 'programs', 'usr', 'lib', 'python2.7', 'dist-packages');
const PAGES = path.join(__dirname, 'pages');
const EXAMPLES = path.join(ROOT, 'examples');
const TEMPLATES = path.join(EXAMPLES, 'template_language');

test('a session with a program that listens can be restarted', () =>
    withEditor(async (editor, folder, environment) => {
        const place = `service.py:${line('service.py', '# waits')}`;
        await listening(path.join(folder, 'service.py'), path.join(folder, 'socket'), environment);
        await editor.openFile('service.py');
        await editor.clickGutter(line('service.py', '# waits'));
        await editor.press('F5');
        await editor.stoppedAt(place);
        await editor.press('Control+Shift+F5');
        await editor.goesOn();
        await editor.stoppedAt(place);
        await editor.shows('variables', 'turn =');
        await editor.press('Shift+F5');
        await editor.ended();
    }, { configurations: (folder) => [{ type: 'sorrel', request: 'attach', name: 'service',
        socket: path.join(folder, 'socket') }] }));

test('threads are listed in the order of their beginning', () => withEditor(async (editor) => {
    await editor.openFile('service.py');
    await editor.clickGutter(line('service.py', '    work()'));
    await editor.press('F5');
    await editor.shows('call stack', 'MainThread', 'first', 'second');
}, { configurations: () => [{ type: 'sorrel', request: 'launch', name: 'two threads',
    program: '${file}', args: ['first', 'second'] }] }));

test('a breakpoint in a template stops at it', () => withEditor(async (editor) => {
    await editor.openFile('templates/bill.weft');
    await editor.clickGutter(5);
    await editor.press('F5');
    await editor.stoppedAt('bill.weft:5');
    await editor.shows('call stack', 'bill.weft', 'bills.py');
}, { programs: TEMPLATES, configurations: (folder) => [{ type: 'sorrel', request: 'launch',
    name: 'bills', program: path.join(folder, 'bills.py'), hooks: ['weft.debugging:Hook'] }] }));

test('a page of HTML is debugged as the template that it is', () => withEditor(async (editor) => {
    await editor.openFile('templates/page.html');
    await editor.clickGutter(4);
    await editor.press('F5');
    await editor.stoppedAt('page.html:5');
    await editor.shows('variables', "item = 'apple'", "title = 'Fruit'");
    await editor.press('F10');
    await editor.stoppedAt('page.html:3');
    await editor.press('F5');
    await editor.stoppedAt('page.html:5');
    await editor.shows('variables', "item = 'pear'");
}, { programs: PAGES, configurations: (folder) => [{ type: 'sorrel', request: 'launch',
    name: 'pages', program: path.join(folder, 'pages.py'), env: { PYTHONPATH: PACKAGES } }] }));
