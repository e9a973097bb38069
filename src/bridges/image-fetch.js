// Body of an async function run in an account's page with the argument `src`
// and `maxBytes`: fetches the image with the page's own session and resolves
// to it as a data URL, or to null when the response is not ok or is larger
// than maxBytes. A reader error rejects with "read".
'use strict';
const response = await fetch(src);
if (!response.ok)
    return null;
const blob = await response.blob();
if (blob.size > maxBytes)
    return null;
return await new Promise((resolve, reject) => {
    const reader = new FileReader();
    reader.onload = () => resolve(reader.result);
    reader.onerror = () => reject(new Error('read'));
    reader.readAsDataURL(blob);
});
