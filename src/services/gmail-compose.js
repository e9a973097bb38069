// Opens a Gmail compose form and fills it from a mail link.
//
// Evaluated as a whole program in the page's main frame each time a link is
// sent to a Gmail account, so it has no install guard: a second run works on
// whatever the page shows then. Orvane fills the three markers of the call at
// the end with JSON string literals (the To addresses joined with ", ", the
// subject, the body) and nothing else enters the text. Every step is wrapped,
// so a change in Gmail's page makes the script give up quietly instead of
// throwing into the page.
(function (to, subject, body) {
    'use strict';

    const deadline = Date.now() + 15000;

    function setNativeValue(field, value) {
        const prototype = field.tagName === 'TEXTAREA' ? HTMLTextAreaElement.prototype : HTMLInputElement.prototype;
        Object.getOwnPropertyDescriptor(prototype, 'value').set.call(field, value);
        field.dispatchEvent(new Event('input', { bubbles: true }));
        field.dispatchEvent(new Event('change', { bubbles: true }));
    }

    function enterKey(type) {
        const event = new KeyboardEvent(type, { key: 'Enter', code: 'Enter', keyCode: 13, which: 13, bubbles: true, cancelable: true });
        // Older engines ignore the legacy fields of the initialiser.
        if (event.keyCode !== 13)
            Object.defineProperty(event, 'keyCode', { get: () => 13 });
        if (event.which !== 13)
            Object.defineProperty(event, 'which', { get: () => 13 });
        return event;
    }

    function fill() {
        try {
            const subjectField = document.querySelector('input[name="subjectbox"]');
            const bodyField = document.querySelector('div[aria-label="Message Body"], div[g_editable="true"][role="textbox"]');
            if (!subjectField || !bodyField) {
                if (Date.now() < deadline)
                    setTimeout(fill, 150);
                return;
            }
            const scope = subjectField.closest('[role="dialog"]') || document;

            if (to) {
                const toField = scope.querySelector('input[aria-label*="To"], input[peoplekit-id], textarea[name="to"], input[type="text"]');
                if (toField) {
                    setNativeValue(toField, to);
                    toField.dispatchEvent(enterKey('keydown'));
                    toField.dispatchEvent(enterKey('keyup'));
                }
            }
            if (subject)
                setNativeValue(subjectField, subject);
            if (body) {
                bodyField.focus();
                document.execCommand('selectAll');
                document.execCommand('insertText', false, body);
            }
        } catch (e) {
        }
    }

    function open() {
        try {
            const composeButton = document.querySelector('[gh="cm"]');
            if (composeButton) {
                composeButton.click();
                setTimeout(fill, 200);
            } else if (Date.now() < deadline) {
                setTimeout(open, 200);
            }
        } catch (e) {
        }
    }

    open();
})(__ORVANE_TO__, __ORVANE_SUBJECT__, __ORVANE_BODY__);
