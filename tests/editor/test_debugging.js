'use strict';
// A program is debugged on the page: from the click beside a line to the program's end.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { withEditor, line, picture } = require('./lib/session');

const TOTAL = line('shop.py', 'total = order.total()');
const CENTS = line('shop.py', 'cents = 0');

// Debugs shop.py, which no launch.json tells of, to where it adds up its first order.
async function debugShop(editor) {
    await editor.openFile('shop.py');
    await editor.clickGutter(TOTAL);
    await editor.press('F5');
    await editor.stoppedAt(`shop.py:${TOTAL}`);
}

function debugging(body) {
    return () => withEditor(async (editor, folder) => {
        await debugShop(editor);
        await body(editor, folder);
    });
}

test('a breakpoint beside a line stops the program there', debugging(async (editor) => {
    await editor.shows('call stack', 'bills', 'main', '<module>');
    await editor.shows('variables', 'orders = [', 'lines = []', 'order = <order of Zoë>');
    await picture(editor, 'editor-breakpoint');
}));

test('values are unfolded to the fields of named tuples', debugging(async (editor) => {
    await editor.unfold('variables', 'order =');
    await editor.shows('variables', "customer = u'Zoë'", 'items =', 'average');
    await editor.unfold('variables', 'items =');
    await editor.shows('variables', "[0] = Item(name='tea'", "[1] = Item(name='cake'");
    await editor.unfold('variables', '[0] =');
    await editor.shows('variables', "name = 'tea'", 'price = 350');
}));

test('a value is shown at its name', debugging(async (editor) => {
    assert.match(await editor.hover(TOTAL, 'order'), /<order of Zoë>/);
}));

test('steps go over, into and out of calls', debugging(async (editor) => {
    await editor.press('F11');
    await editor.stoppedAt(`shop.py:${CENTS}`);
    await editor.press('F10');
    await editor.stoppedAt(`shop.py:${CENTS + 1}`);
    await editor.press('Shift+F11');
    await editor.stoppedAt(`shop.py:${TOTAL}`);
    await editor.press('F10');
    await editor.stoppedAt(`shop.py:${TOTAL + 1}`);
    await editor.shows('variables', 'total = 770');
}));

test('the debug console takes expressions and statements', debugging(async (editor) => {
    await editor.enter('order.total()');
    await editor.shows('console', 'order.total()', '770');
    await editor.enter('number = len(orders)\nnumber * 14');
    await editor.shows('console', 'number * 14', '42');
    await editor.enter('nothing');
    await editor.shows('console', "NameError: name 'nothing' is not defined");
}));

test('what is watched is shown again at each stop', debugging(async (editor) => {
    await editor.watch('len(lines)');
    await editor.shows('watch', 'len(lines) = 0');
    await editor.press('F5');
    await editor.shows('watch', 'len(lines) = 1');
}));

test('a restarted program stops at its breakpoint again', debugging(async (editor) => {
    await editor.press('F5');
    await editor.shows('variables', 'order = <order of Åsa>');
    await editor.press('Control+Shift+F5');
    await editor.shows('variables', 'order = <order of Zoë>');
    await editor.stoppedAt(`shop.py:${TOTAL}`);
}));

test('a stopped session runs no more of the program', debugging(async (editor, folder) => {
    await editor.press('Shift+F5');
    await editor.ended();
    assert.ok(!fs.existsSync(path.join(folder, 'bills.txt')));
}));

test('a program that goes on comes to its end', debugging(async (editor, folder) => {
    await editor.clickGutter(TOTAL, false);
    await editor.press('F5');
    await editor.ended();
    await editor.shows('console', 'written');
    assert.equal(fs.readFileSync(path.join(folder, 'bills.txt'), 'utf8'),
        'Zoë: 7.70\nÅsa: 2.80\nBob: 0.00');
}));

test('an exception that nothing catches stops the program and is shown', () =>
    withEditor(async (editor) => {
        await editor.openFile('averages.py');
        await editor.press('F5');
        await editor.stoppedAt(`averages.py:${line('averages.py', 'len(order.items)')}`);
        await editor.page.locator('.exception-widget', { hasText: 'ZeroDivisionError' }).waitFor();
        await editor.shows('call stack', 'average', 'averages', '<module>');
        await editor.shows('variables', 'order = <order of Bob>');
        await picture(editor, 'editor-exception');
    }));
