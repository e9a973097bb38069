// Body of an async function run in a Gmail page when files are dropped on
// Orvane's window: finds the attach control of the compose form, opening a
// form first when none is there, and returns the point to click in viewport
// CSS pixels ({x, y}) or null.
'use strict';
try {
    const sleep = ms => new Promise(resolve => setTimeout(resolve, ms));
    // The last visible control belongs to the form opened most recently;
    // minimised forms keep theirs at zero size.
    const pick = () => {
        const controls = Array.from(document.querySelectorAll('[command="Files"], [aria-label="Attach files"]'));
        let visible = null;
        for (const control of controls) {
            const box = control.getBoundingClientRect();
            if (box.width > 0 && box.height > 0)
                visible = control;
        }
        return visible || controls[0] || null;
    };

    let control = pick();
    if (!control) {
        const composeButton = document.querySelector('[gh="cm"]');
        if (composeButton)
            composeButton.click();
        for (let attempt = 0; attempt < 50 && !control; ++attempt) {
            await sleep(100);
            control = pick();
        }
    }
    if (!control)
        return null;
    const box = control.getBoundingClientRect();
    return { x: box.left + box.width / 2, y: box.top + box.height / 2 };
} catch (e) {
    return null;
}
