// Body of an async function run in a Gmail page: 'typed' when a compose
// form (a new message, minimised or not, or a reply) holds text the user
// typed, else 'none'. The signature and the quoted message do not count.
// Before an idle account sleeps, Orvane asks this: typed text keeps it awake.
'use strict';
try {
    const typedIn = editor => {
        const copy = editor.cloneNode(true);
        for (const added of copy.querySelectorAll('.gmail_signature, .gmail_quote, .gmail_extra'))
            added.remove();
        return copy.textContent.trim() !== '';
    };
    for (const field of document.querySelectorAll('input[name="subjectbox"], input[aria-label="To recipients"], textarea[name="to"]')) {
        if (field.value.trim() !== '')
            return 'typed';
    }
    for (const editor of document.querySelectorAll('div[g_editable="true"], div[aria-label="Message Body"]')) {
        if (typedIn(editor))
            return 'typed';
    }
    return 'none';
} catch (e) {
    return '';
}
