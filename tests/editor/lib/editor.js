'use strict';
// What is done on the editor's page, and what it shows.

const { eventually } = require('./waiting');

// A pane's rows.
const PANES = {
    'call stack': '.debug-call-stack .monaco-list-row',
    variables: '.debug-variables .monaco-list-row',
    watch: '.debug-watch .monaco-list-row',
    breakpoints: '.debug-breakpoints .monaco-list-row',
    console: '.repl .repl-tree .monaco-list-row',
};

class Editor {
    constructor(page) {
        this.page = page;
    }

    // name: of a file in the folder, or below it.
    async openFile(name) {
        for (const part of name.split('/')) {
            await this.page.locator('.explorer-folders-view .monaco-list-row', { hasText: part })
                .first().click();
        }
        const file = name.split('/').pop();
        await this.page.locator(`.tab.active[data-resource-name="${file}"]`).waitFor();
        await this.offersBreakpoint(1);
    }

    async pointBeside(line) {
        const number = await this.lineNumber(line).boundingBox();
        const margin = await this.page.locator('.editor-instance .margin').first().boundingBox();
        const y = number.y + number.height / 2;
        await this.page.mouse.move(margin.x + 8, y);
        await this.page.mouse.move(margin.x + 10, y);
    }

    // Nor can a program be started before.
    async offersBreakpoint(line) {
        await eventually(async () => {
            await this.pointBeside(line);
            return (await this.linesWith('debug-hint')).includes(line);
        }, () => `no breakpoint is offered at ${line}`);
    }

    lineNumber(line) {
        return this.page.locator('.editor-instance .line-numbers')
            .getByText(String(line), { exact: true });
    }

    async goToLine(line) {
        await this.press('Control+g');
        await this.page.locator('.quick-input-widget input.input').fill(`:${line}`);
        await this.press('Enter');
        await this.page.locator('.quick-input-widget').waitFor({ state: 'hidden' });
    }

    // Clicks left of the line's number; a breakpoint is there then, or there is none any more.
    async clickGutter(line, sets = true) {
        await this.goToLine(line);
        if (sets) {
            await this.offersBreakpoint(line);
        } else {
            await this.pointBeside(line);
        }
        await this.page.mouse.down();
        await this.page.mouse.up();
        await eventually(
            async () => (await this.linesWith('debug-breakpoint')).includes(line) === sets,
            async () => `breakpoints are at ${await this.linesWith('debug-breakpoint')}`);
    }

    // The numbers of the lines that have this icon beside them.
    linesWith(icon) {
        return this.page.evaluate((name) => {
            const top = (element) => Math.round(element.getBoundingClientRect().top);
            const numbers = new Map();
            for (const element of document.querySelectorAll('.editor-instance .line-numbers')) {
                numbers.set(top(element), Number(element.textContent));
            }
            return Array.from(document.querySelectorAll(
                `.editor-instance .glyph-margin-widgets [class*="codicon-${name}"]`),
            (element) => numbers.get(top(element)));
        }, icon);
    }

    async press(key) {
        await this.page.keyboard.press(key);
    }

    // Runs a command of the palette.
    async command(name) {
        await this.press('F1');
        const input = this.page.locator('.quick-input-widget input.input');
        await input.fill(`>${name}`);
        await this.page.locator('.quick-input-list .monaco-list-row.focused', { hasText: name })
            .waitFor();
        await this.press('Enter');
        await this.page.locator('.quick-input-widget').waitFor({ state: 'hidden' });
    }

    // The file in front and the line that the program has stopped at, as "shop.py:12".
    async place() {
        const [line] = await this.linesWith('debug-stackframe');
        const tab = this.page.locator('.tab.active');
        return line ? `${await tab.getAttribute('data-resource-name')}:${line}` : null;
    }

    async stoppedAt(place) {
        await eventually(async () => await this.place() === place,
            async () => `not stopped at ${place} but at ${await this.place()}`);
    }

    // Waits until the program is not where it was.
    async goesOn() {
        await eventually(async () => !await this.place(),
            async () => `still stopped at ${await this.place()}`);
    }

    // The toolbar goes with the session.
    async ended() {
        await this.page.locator('.debug-toolbar').waitFor({ state: 'hidden' });
        await this.page.locator('.statusbar:not(.debugging)').waitFor();
    }

    rows(pane) {
        return this.page.locator(PANES[pane]).allInnerTexts();
    }

    // Waits for rows that have the texts, in their order.
    async shows(pane, ...texts) {
        const found = async () => {
            const rows = (await this.rows(pane)).map((text) => text.replace(/\s+/g, ' ').trim());
            let place = -1;
            return texts.every((text) => {
                place = rows.findIndex((row, number) => number > place && (
                    text instanceof RegExp ? text.test(row) : row.includes(text)));
                return place >= 0;
            });
        };
        await eventually(found, async () => `${pane} does not show ${texts.join(', ')}: ${
            JSON.stringify(await this.rows(pane))}`);
    }

    // Unfolds the row whose name and value begin with the text.
    async unfold(pane, text) {
        const begins = new RegExp(`^\\s*${text.replace(/[[\](){}.*+?^$|\\]/g, '\\$&')}`);
        await this.page.locator(PANES[pane], { hasText: begins }).first()
            .locator('.monaco-tl-twistie').click();
    }

    // The text of the hover over a word in the line.
    async hover(line, word) {
        const widget = this.page.locator('.debug-hover-widget');
        await eventually(async () => {
            const { x, y } = await this.whereIs(line, word);
            await this.page.mouse.move(x - 1, y);
            await this.page.mouse.move(x, y);
            return await widget.isVisible() && await widget.innerText();
        }, () => `nothing is shown at ${word}`);
        return widget.innerText();
    }

    // The middle of the first time that the word is in the line.
    async whereIs(line, word) {
        const number = await this.lineNumber(line).boundingBox();
        return this.page.evaluate(([top, wanted]) => {
            const lines = Array.from(document.querySelectorAll('.editor-instance .view-line'));
            const found = lines.find((one) => Math.abs(one.getBoundingClientRect().top - top) < 3);
            const texts = document.createTreeWalker(found, NodeFilter.SHOW_TEXT);
            while (texts.nextNode()) {
                const place = texts.currentNode.textContent.search(`\\b${wanted}\\b`);
                if (place >= 0) {
                    const range = document.createRange();
                    range.setStart(texts.currentNode, place);
                    range.setEnd(texts.currentNode, place + wanted.length);
                    const box = range.getBoundingClientRect();
                    return { x: box.left + box.width / 2, y: box.top + box.height / 2 };
                }
            }
            return null;
        }, [number.y, word]);
    }

    async watch(expression) {
        const pane = this.page.locator('.pane', { has: this.page.locator('.debug-watch') });
        await pane.hover();
        await pane.getByRole('button', { name: 'Add Expression' }).click();
        await this.page.locator('.debug-watch input').fill(expression);
        await this.press('Enter');
    }

    // Types into the debug console.
    async enter(text) {
        await this.command('Debug Console: Focus on Debug Console View');
        const input = this.page.locator('.repl-input-wrapper .monaco-editor');
        await input.click();
        await this.page.keyboard.insertText(text);
        await this.press('Enter');
    }
}

module.exports = { Editor };
