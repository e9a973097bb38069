// Opens an Outlook compose form and fills it from a mail link.
//
// Evaluated as a whole program in the page's main frame each time a link is
// sent to an Outlook account, so it has no install guard. Orvane fills the
// markers of the call at the end: the subject and the body as JSON string
// literals, the To addresses as a JSON array of string literals. The
// function's promise is dropped with `void`, so the program's value is
// undefined and nothing rejects into the page.
void (async (subject, to, body) => {
    'use strict';
    try {
        const sleep = ms => new Promise(resolve => setTimeout(resolve, ms));
        const isVisible = element => {
            if (!element)
                return false;
            const box = element.getBoundingClientRect();
            return box.width > 0 && box.height > 0 && element.offsetParent !== null;
        };
        const findSubject = () => document.querySelector('input[aria-label="Subject"]');

        let subjectField = findSubject();
        if (!isVisible(subjectField)) {
            const newMail = document.querySelector('[aria-label="New mail"]');
            if (newMail)
                newMail.click();
            for (let attempt = 0; attempt < 50; ++attempt) {
                await sleep(100);
                subjectField = findSubject();
                if (isVisible(subjectField))
                    break;
            }
        }
        // A field that exists but is still hidden is used anyway.
        if (!subjectField)
            return;

        if (subject) {
            Object.getOwnPropertyDescriptor(HTMLInputElement.prototype, 'value').set.call(subjectField, subject);
            subjectField.dispatchEvent(new Event('input', { bubbles: true }));
        }

        const toField = document.querySelector('[aria-label="To"][contenteditable="true"]');
        if (toField) {
            for (const address of to) {
                toField.focus();
                document.execCommand('insertText', false, address);
                await sleep(150);
                toField.dispatchEvent(new KeyboardEvent('keydown', { key: 'Enter', code: 'Enter', keyCode: 13, which: 13, bubbles: true, cancelable: true }));
                await sleep(200);
            }
        }

        const bodyField = document.querySelector('[aria-label="Message body"]');
        if (bodyField && body) {
            bodyField.focus();
            document.execCommand('insertText', false, body);
        }
    } catch (e) {
    }
})(__ORVANE_SUBJECT__, __ORVANE_TO__, __ORVANE_BODY__);
