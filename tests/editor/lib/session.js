'use strict';
// A test's editor: its server, a browser and a copy of a folder with programs; all of it gone when
// the test ends, however it does.

const { spawn } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { chromium } = require('playwright-core');
const { Editor } = require('./editor');
const { MARK, endMarked } = require('./processes');
const { Server } = require('./server');
const { eventually, PATIENCE } = require('./waiting');

const ROOT = path.resolve(__dirname, '..', '..', '..');
const MORVIK = path.join(ROOT, 'morvik');
const SHOP = path.join(__dirname, '..', 'shop');
const FAILURES = path.join(ROOT, 'build', 'editor');
const SIZE = { width: 1180, height: 760 };

// options: programs, the folder to open a copy of; configurations, those of its launch.json.
async function withEditor(test, options = {}) {
    const home = fs.mkdtempSync(path.join(fs.realpathSync(os.tmpdir()), 'morvik-editor-'));
    const folder = path.join(home, 'work', path.basename(options.programs || SHOP));
    fs.cpSync(options.programs || SHOP, folder, { recursive: true });
    if (options.configurations) {
        fs.mkdirSync(path.join(folder, '.vscode'));
        fs.writeFileSync(path.join(folder, '.vscode', 'launch.json'), JSON.stringify(
            { version: '0.2.0', configurations: options.configurations(folder) }));
    }
    const environment = { ...process.env, HOME: home, XDG_RUNTIME_DIR: home, [MARK]: home };
    let browser = null;
    try {
        const server = new Server(environment);
        browser = await chromium.launch({ executablePath: '/usr/bin/chromium', env: environment,
            args: ['--no-sandbox', '--disable-gpu'] });
        const page = await browser.newPage({ viewport: SIZE });
        page.setDefaultTimeout(PATIENCE);
        await page.goto(await server.page(folder));
        const editor = new Editor(page);
        try {
            await test(editor, folder, environment);
        } catch (error) {
            await keepPicture(page, error);
            throw error;
        }
    } finally {
        await browser?.close();
        await endMarked(home);
        fs.rmSync(home, { recursive: true, force: true });
    }
}

// Starts a program that listens at a socket; resolves when it does.
function listening(file, socket, environment) {
    spawn(MORVIK, ['run', '--listen', `unix:${socket}`, file], { env: environment, stdio: 'ignore' });
    return eventually(() => fs.existsSync(socket), () => `${file} does not listen`);
}

// The number of the line of the shop's with this mark.
function line(file, mark) {
    const lines = fs.readFileSync(path.join(SHOP, file), 'utf8').split('\n');
    return lines.findIndex((text) => text.includes(mark)) + 1;
}

// Keeps a picture of the page for the documentation, if asked to.
async function picture(editor, name) {
    if (process.env.MORVIK_TEST_PICTURES) {
        await editor.page.mouse.move(SIZE.width / 2, SIZE.height - 40);
        await editor.page.screenshot({ path: path.join(ROOT, 'docs', `${name}.png`) });
    }
}

// What the page was like when the test failed.
async function keepPicture(page, error) {
    fs.mkdirSync(FAILURES, { recursive: true });
    const picture = path.join(FAILURES, `${process.pid}-${Date.now()}.png`);
    await page.screenshot({ path: picture });
    error.message += ` (the page: ${picture})`;
}

module.exports = { withEditor, listening, line, picture, ROOT };
