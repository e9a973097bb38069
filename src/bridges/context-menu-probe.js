// Tells Orvane what the user right-clicked: the image's address and the
// address of the link around it (each '' when there is none), with the
// page's stamp, for every contextmenu event in the capture phase. Runs in
// every frame at document start. The event is neither cancelled nor stopped.
(function () {
    'use strict';
    if (window.__orvaneContextProbe)
        return;
    window.__orvaneContextProbe = true;

    document.addEventListener('contextmenu', event => {
        try {
            const target = event.target;
            let img = '';
            let link = '';
            if (target && target.tagName === 'IMG')
                img = String(target.currentSrc || target.src || '');
            if (target && typeof target.closest === 'function') {
                const anchor = target.closest('a[href]');
                if (anchor)
                    link = String(anchor.href || '');
            }
            window.webkit.messageHandlers.orvaneContextImage.postMessage({
                img, link, orvanePage: window.__orvanePage,
            });
        } catch (e) {
        }
    }, true);
})();
