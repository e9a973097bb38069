// Body of an async function run in an Outlook page when files are dropped on
// Orvane's window. Outlook's inbox always carries hidden file inputs, so a
// compose form counts as open only when its Subject field is visible. The
// chosen file input is moved, nearly transparent, to a known place on top of
// the page for the native click, and its own style comes back from the data
// attribute orvaneOrigStyle 4 s later. Returns the point ({x, y}) or null.
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

    if (!isVisible(findSubject())) {
        const newMail = document.querySelector('[aria-label="New mail"]');
        if (newMail)
            newMail.click();
        for (let attempt = 0; attempt < 50; ++attempt) {
            await sleep(100);
            if (isVisible(findSubject()))
                break;
        }
    }
    if (!isVisible(findSubject()))
        return null;

    let inputs = Array.from(document.querySelectorAll('input[type=file]'));
    for (let attempt = 0; attempt < 30 && !inputs.length; ++attempt) {
        await sleep(100);
        inputs = Array.from(document.querySelectorAll('input[type=file]'));
    }
    const input = inputs.find(candidate => !candidate.hasAttribute('accept')) || inputs[0];
    if (!input)
        return null;

    const placed = 'position:fixed;left:60px;top:60px;width:90px;height:44px;opacity:0.01;display:block;z-index:2147483647';
    const current = input.getAttribute('style') || '';
    // A second drop within the 4 s keeps the page's style, not ours.
    if (!(current === placed && input.dataset.orvaneOrigStyle !== undefined))
        input.dataset.orvaneOrigStyle = current;
    input.setAttribute('style', placed);

    const box = input.getBoundingClientRect();
    setTimeout(() => {
        try {
            input.setAttribute('style', input.dataset.orvaneOrigStyle || '');
        } catch (e) {
        }
    }, 4000);
    return { x: box.left + box.width / 2, y: box.top + box.height / 2 };
} catch (e) {
    return null;
}
