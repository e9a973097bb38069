// Switches off automatic correction, capitalisation and writing suggestions
// for the page: on the root element now, and on every element at the moment
// it receives focus (so fields the page adds later are covered too). Runs in
// every frame at document start. Nothing is ever restored.
(function () {
    'use strict';
    if (window.__orvaneInputTaming)
        return;
    window.__orvaneInputTaming = true;

    const tame = element => {
        if (!element || typeof element.setAttribute !== 'function')
            return;
        element.setAttribute('autocorrect', 'off');
        element.setAttribute('autocapitalize', 'off');
        element.setAttribute('writingsuggestions', 'false');
    };

    try {
        tame(document.documentElement);
    } catch (e) {
    }
    document.addEventListener('focusin', event => {
        try {
            tame(event.target);
        } catch (e) {
        }
    }, true);
})();
