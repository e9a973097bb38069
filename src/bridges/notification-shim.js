// Orvane's Notification for the page: every notification the page creates is
// kept here under an id ("1", "2", ... per frame and page load) and handed to
// Orvane (orvaneNotify), which shows it on the desktop. A click on the desktop
// notification comes back as window.__orvaneClickNotif(id), which runs the
// page's own click handler. Runs in every frame at document start, before the
// page's scripts. Every call out to Orvane and into the page's handlers is
// wrapped so that an exception never escapes into the page.
(function () {
    'use strict';
    if (window.__orvaneNotifyInstalled)
        return;
    window.__orvaneNotifyInstalled = true;

    let seq = 0;
    const live = Object.create(null); // id -> notification the page has not closed

    const text = value => (value === undefined || value === null ? '' : String(value));
    const call = (fn, self, argument) => {
        if (typeof fn !== 'function')
            return;
        try {
            if (argument === undefined)
                fn.call(self);
            else
                fn.call(self, argument);
        } catch (e) {
        }
    };

    function N(title, options) {
        const o = options || {};
        this.title = text(title);
        this.body = text(o.body);
        this.tag = text(o.tag);
        this.icon = text(o.icon);
        this.data = o.data;
        this.onclick = null;
        this.onclose = null;
        this.onerror = null;
        this.onshow = null;
        const id = String(++seq);
        this._id = id;
        live[id] = this;
        try {
            window.webkit.messageHandlers.orvaneNotify.postMessage({
                id: id,
                title: this.title,
                body: this.body,
                tag: this.tag,
                orvanePage: window.__orvanePage,
            });
        } catch (e) {
        }
        const self = this;
        setTimeout(() => call(self.onshow, self), 0);
    }

    // Nothing reaches Orvane: a desktop notification already shown stays.
    N.prototype.close = function () {
        delete live[this._id];
        call(this.onclose, this);
    };
    // One listener per type; a later one replaces an earlier one.
    N.prototype.addEventListener = function (type, fn) {
        this['on' + type] = fn;
    };
    N.prototype.removeEventListener = function (type, fn) {
        if (this['on' + type] === fn)
            this['on' + type] = null;
    };
    N.prototype.dispatchEvent = function () {
        return true;
    };

    N.permission = 'granted';
    N.maxActions = 0;
    N.requestPermission = function (callback) {
        call(callback, undefined, 'granted');
        return Promise.resolve('granted');
    };

    try {
        window.Notification = N;
    } catch (e) {
    }

    window.__orvaneClickNotif = function (id) {
        const notification = live[id];
        if (!notification || typeof notification.onclick !== 'function')
            return;
        try {
            window.focus();
        } catch (e) {
        }
        call(notification.onclick, notification, { preventDefault: function () {} });
    };
})();
