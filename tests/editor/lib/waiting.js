'use strict';
// Waiting for what the page, or a program, will come to.

const PATIENCE = Number(process.env.MORVIK_TEST_PATIENCE || 60) * 1000;

// The first result of the function that is true. complaint: a
// function that says what was there instead.
async function eventually(condition, complaint) {
    const end = Date.now() + PATIENCE;
    for (;;) {
        const result = await condition();
        if (result) {
            return result;
        }
        if (Date.now() > end) {
            throw new Error(await complaint());
        }
        await new Promise((resolve) => setTimeout(resolve, 20));
    }
}

module.exports = { eventually, PATIENCE };
