// Reads Outlook's inbox unread count from the folder list: -1 when the page
// has no inbox folder (signing in, loading), 0 when the folder shows no count.
// Evaluated every few seconds as a whole program; its value is the count.
(() => {
    'use strict';
    try {
        const inbox = document.querySelector('[data-folder-name="inbox"]');
        if (!inbox)
            return -1;
        const match = /\((\d+)\s*unread\)/i.exec(inbox.getAttribute('title') || '');
        return match ? parseInt(match[1], 10) : 0;
    } catch (e) {
        return -1;
    }
})();
