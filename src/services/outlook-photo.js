// Body of an async function run in an Outlook page with the named argument
// acctName (the account's label). Outlook's avatar is a page-local image that
// Orvane cannot fetch itself, so the page fetches it and the result is a
// data: address ('' on any failure). The avatar labelled with the account's
// name wins over other people's avatars on the page.
'use strict';
try {
    const sleep = ms => new Promise(resolve => setTimeout(resolve, ms));
    const name = typeof acctName === 'string' ? acctName : '';
    const pick = () => {
        const images = Array.from(document.querySelectorAll('img.fui-Avatar__image'))
            .filter(image => (image.getAttribute('src') || '') !== '');
        if (name) {
            const labelled = images.find(image => {
                const holder = image.closest('[aria-label]');
                return holder && (holder.getAttribute('aria-label') || '').includes(name);
            });
            if (labelled)
                return labelled;
        }
        return images[0] || null;
    };

    let image = null;
    for (let attempt = 0; attempt < 25; ++attempt) {
        image = pick();
        if (image || attempt === 24)
            break;
        await sleep(200);
    }
    if (!image)
        return '';

    const response = await fetch(image.src);
    const bytes = new Uint8Array(await response.arrayBuffer());
    let binary = '';
    for (let offset = 0; offset < bytes.length; offset += 0x8000)
        binary += String.fromCharCode.apply(null, bytes.subarray(offset, offset + 0x8000));
    const type = response.headers.get('content-type') || 'image/jpeg';
    return 'data:' + type + ';base64,' + btoa(binary);
} catch (e) {
    return '';
}
