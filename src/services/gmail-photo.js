// Body of an async function run in a Gmail page: the address of the account's
// photo in Google's bar, or '' when the page shows none. The acctName
// argument is not needed here.
'use strict';
try {
    const image = document.querySelector('a[aria-label*="Account"] img')
        || document.querySelector('a[aria-label*="account"] img')
        || document.querySelector('img.gbii');
    return image && image.src ? image.src : '';
} catch (e) {
    return '';
}
