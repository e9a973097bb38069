// Turns plain-text tables in a paste into real tables when the paste goes into
// an editable area: Markdown pipe tables (a header line, a delimiter line of
// dashes, body lines) and tables drawn with box-drawing characters. Every
// other line of the paste stays text. Runs in every frame at document end;
// anything unexpected leaves the paste to the page and the browser.
(function () {
    'use strict';
    if (window.__orvaneMarkdownPaste)
        return;
    window.__orvaneMarkdownPaste = true;

    const V = '\u2502';
    const TD = 'border:1px solid #cccccc;padding:6px 10px;';
    const TH = TD + 'background:#f1f3f4;font-weight:bold;';
    const TBL = 'border-collapse:collapse;margin:4px 0;font-size:14px;';
    // Each cell must hold dashes, and a pipe always starts a new cell, so no
    // input makes this pattern backtrack more than linearly.
    const DELIMITER = /^\|?\s*:?-{1,}:?\s*(\|\s*:?-{1,}:?\s*)*\|?$/;
    const RULE = /^[ \u2500-\u257F]+$/;
    const HTML_TABLE = /<table[\s>]/i;

    const isBoxContent = line => line.indexOf(V) !== -1;
    // A border line of a drawn table: only box-drawing characters and spaces.
    const isBoxRule = line => {
        if (isBoxContent(line))
            return false;
        const trimmed = line.trim();
        return trimmed.length > 0 && RULE.test(trimmed);
    };
    const isDelim = line => {
        const trimmed = line.trim();
        return trimmed.indexOf('-') !== -1 && DELIMITER.test(trimmed);
    };

    const splitRow = line => {
        let text = line.trim();
        if (text.startsWith('|'))
            text = text.slice(1);
        if (text.endsWith('|'))
            text = text.slice(0, -1);
        return text.split('|').map(cell => cell.trim());
    };
    const splitBoxRow = line => {
        const pieces = line.split(V);
        if (pieces.length && !pieces[0].trim())
            pieces.shift();
        if (pieces.length && !pieces[pieces.length - 1].trim())
            pieces.pop();
        return pieces.map(cell => cell.trim());
    };
    const aligns = line => splitRow(line).map(cell => {
        const starts = cell.startsWith(':');
        const ends = cell.endsWith(':');
        if (starts && ends)
            return 'center';
        if (ends)
            return 'right';
        if (starts)
            return 'left';
        return null;
    });

    // The paste as a list of parts: text lines and tables. No DOM nodes are
    // made here, so a long paste without a table costs one pass over its lines.
    function parse(text) {
        const lines = text.replace(/\r\n?/g, '\n').split('\n');
        const count = lines.length;
        // runHasContent[i]: line i starts a run of box lines that holds at
        // least one content line (computed backwards, once).
        const box = new Array(count);
        const runHasContent = new Array(count + 1);
        runHasContent[count] = false;
        for (let i = count - 1; i >= 0; --i) {
            const content = isBoxContent(lines[i]);
            box[i] = content || isBoxRule(lines[i]);
            runHasContent[i] = box[i] && (content || runHasContent[i + 1]);
        }

        const parts = [];
        let found = false;
        let i = 0;
        while (i < count) {
            const line = lines[i];
            if (runHasContent[i]) {
                const rows = [];
                for (; i < count && box[i]; ++i) {
                    if (isBoxContent(lines[i]))
                        rows.push(splitBoxRow(lines[i]));
                }
                if (rows.length) {
                    parts.push({ header: rows[0], alignments: [], body: rows.slice(1) });
                    found = true;
                }
                continue;
            }
            if (line.indexOf('|') !== -1 && i + 1 < count && isDelim(lines[i + 1])) {
                const table = { header: splitRow(line), alignments: aligns(lines[i + 1]), body: [] };
                for (i += 2; i < count && lines[i].indexOf('|') !== -1 && lines[i].trim(); ++i)
                    table.body.push(splitRow(lines[i]));
                parts.push(table);
                found = true;
                continue;
            }
            parts.push(line);
            ++i;
        }
        return found ? parts : null;
    }

    function cellStyle(base, alignment) {
        return alignment ? base + 'text-align:' + alignment + ';' : base;
    }

    function makeTable(part) {
        const table = document.createElement('table');
        table.setAttribute('style', TBL);
        const head = document.createElement('thead');
        const headRow = document.createElement('tr');
        part.header.forEach((text, column) => {
            const cell = document.createElement('th');
            cell.setAttribute('style', cellStyle(TH, part.alignments[column]));
            cell.textContent = text;
            headRow.appendChild(cell);
        });
        head.appendChild(headRow);
        table.appendChild(head);
        const body = document.createElement('tbody');
        for (const row of part.body) {
            const tr = document.createElement('tr');
            for (let column = 0; column < part.header.length; ++column) {
                const cell = document.createElement('td');
                cell.setAttribute('style', cellStyle(TD, part.alignments[column]));
                cell.textContent = column < row.length ? row[column] : '';
                tr.appendChild(cell);
            }
            body.appendChild(tr);
        }
        table.appendChild(body);
        return table;
    }

    // A line break goes only before a text line that follows something.
    function buildFragment(parts) {
        const fragment = document.createDocumentFragment();
        let any = false;
        for (const part of parts) {
            if (typeof part === 'string') {
                if (any)
                    fragment.appendChild(document.createElement('br'));
                fragment.appendChild(document.createTextNode(part));
            } else {
                fragment.appendChild(makeTable(part));
            }
            any = true;
        }
        return fragment;
    }

    function insert(fragment) {
        const selection = window.getSelection();
        if (!selection || !selection.rangeCount)
            return false;
        const range = selection.getRangeAt(0);
        range.deleteContents();
        const last = fragment.lastChild;
        range.insertNode(fragment);
        if (last) {
            const caret = document.createRange();
            caret.setStartAfter(last);
            caret.collapse(true);
            selection.removeAllRanges();
            selection.addRange(caret);
        }
        return true;
    }

    function isEditableTarget(event) {
        const target = event.target;
        // A text field never takes a table, even inside an editable area.
        if (target instanceof HTMLInputElement || target instanceof HTMLTextAreaElement)
            return false;
        for (let node = target; node && node !== document; node = node.parentNode) {
            if (node.isContentEditable)
                return true;
        }
        const active = document.activeElement;
        return !!(active && active.isContentEditable);
    }

    document.addEventListener('paste', event => {
        try {
            const data = event.clipboardData;
            if (!data || !isEditableTarget(event))
                return;
            const text = data.getData('text/plain');
            if (!text || (text.indexOf('|') === -1 && text.indexOf(V) === -1))
                return;
            const rich = data.getData('text/html');
            if (rich && HTML_TABLE.test(rich))
                return;
            const parts = parse(text);
            if (!parts)
                return;
            if (insert(buildFragment(parts))) {
                event.preventDefault();
                event.stopImmediatePropagation();
            }
        } catch (e) {
        }
    }, true);
})();
