// Body of an async function run in the page after files were dropped on
// Orvane's window: clicks the element at viewport point (x, y), the point the
// service's attach script reported, going into same-origin frames. Orvane
// runs it as a user action, so a file input clicked this way (directly or by
// the page's own click handler) opens the file chooser that Orvane then
// answers with the dropped files. Returns whether something was clicked.
'use strict';
try {
    let doc = document;
    let px = Number(x);
    let py = Number(y);
    if (!Number.isFinite(px) || !Number.isFinite(py))
        return false;
    let target = doc.elementFromPoint(px, py);
    for (let depth = 0; target && target.tagName === 'IFRAME' && depth < 8; ++depth) {
        let inner = null;
        try {
            inner = target.contentDocument;
        } catch (e) {
        }
        if (!inner)
            break;
        const box = target.getBoundingClientRect();
        px -= box.left + target.clientLeft;
        py -= box.top + target.clientTop;
        doc = inner;
        target = doc.elementFromPoint(px, py) || target;
        if (target.ownerDocument !== doc)
            break;
    }
    if (!target)
        return false;
    const view = doc.defaultView || window;
    const init = { bubbles: true, cancelable: true, composed: true, view, button: 0, buttons: 1,
        clientX: px, clientY: py, detail: 1 };
    // Pages that act on the press rather than the click see one as well.
    for (const type of ['pointerdown', 'mousedown']) {
        const event = type.startsWith('pointer') ? new view.PointerEvent(type, { ...init, pointerType: 'mouse', isPrimary: true })
                                                 : new view.MouseEvent(type, init);
        target.dispatchEvent(event);
    }
    for (const type of ['pointerup', 'mouseup']) {
        const release = { ...init, buttons: 0 };
        const event = type.startsWith('pointer') ? new view.PointerEvent(type, { ...release, pointerType: 'mouse', isPrimary: true })
                                                 : new view.MouseEvent(type, release);
        target.dispatchEvent(event);
    }
    if (typeof target.click === 'function')
        target.click();
    else
        target.dispatchEvent(new view.MouseEvent('click', { ...init, buttons: 0 }));
    return true;
} catch (e) {
    return false;
}
