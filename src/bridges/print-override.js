window.print = function(){ try { window.webkit.messageHandlers.orvanePrint.postMessage(window.__orvanePage); } catch (e) {} };
