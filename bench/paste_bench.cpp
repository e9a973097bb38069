// Time the table-paste script spends on large pastes, measured inside the page
// with performance.now() around the dispatch of a real paste event (the
// script's listener runs synchronously within it):
//  - a Markdown pipe table of 2,000 rows (converted into a table);
//  - 5 MB of text with a pipe on every line and no table (looked at, left to
//    the page: the browser's own paste would follow);
//  - one line of 10,000 pipes over a line that almost is a delimiter line.
// Each case runs on a fresh editable area; the figures are over all runs.
// Most of the table's time is WebKit laying the new table out: placing the
// caret after it needs the layout at once, where a paste without a caret
// move would pay for it before the next frame instead.
// Usage (needs a display): paste_bench [runs per case, default 7]
#include "GRef.h"
#include "PageBridges.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <gtk/gtk.h>
#include <nlohmann/json.hpp>
#include <webkit/webkit.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

using namespace orvane;
using namespace orvane::test;

namespace {

constexpr const char* kPage = "<!DOCTYPE html><html><head><meta charset=utf-8></head>"
                              "<body><div id=editor contenteditable=true></div></body></html>";

// Builds the case's text once, then pastes it into an emptied editor and
// returns {ms, prevented, tables}.
constexpr const char* kRun = R"JS(
(() => {
    const texts = window.__texts || (window.__texts = {
        table: '| n | square | name |\n|--:|--:|:--|\n'
            + Array.from({ length: 2000 }, (_, i) => `| ${i} | ${i * i} | row ${i} |`).join('\n'),
        text: 'a | b c d e f g h i j k\n'.repeat(220000),
        pipes: '|'.repeat(10000) + '\n' + '|-'.repeat(5000) + 'x',
    });
    const editor = document.getElementById('editor');
    editor.textContent = '';
    editor.focus();
    const range = document.createRange();
    range.selectNodeContents(editor);
    getSelection().removeAllRanges();
    getSelection().addRange(range);
    const data = new DataTransfer();
    data.setData('text/plain', texts[CASE]);
    const event = new ClipboardEvent('paste', { clipboardData: data, bubbles: true, cancelable: true });
    const start = performance.now();
    editor.dispatchEvent(event);
    const ms = performance.now() - start;
    return { ms, prevented: event.defaultPrevented, tables: editor.querySelectorAll('table').length,
        size: texts[CASE].length };
})()
)JS";

nlohmann::json run(WebKitWebView* view, const std::string& script) {
    struct Pending {
        bool done = false;
        nlohmann::json value;
    } pending;
    webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr,
        nullptr, [](GObject* source, GAsyncResult* result, gpointer data) {
            auto* pending = static_cast<Pending*>(data);
            GErrorPtr error;
            auto value = adopt(webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, GErrorOut(error)));
            if (value) {
                GCharPtr json(jsc_value_to_json(value.get(), 0));
                if (json)
                    pending->value = nlohmann::json::parse(json.get(), nullptr, false);
            } else {
                std::fprintf(stderr, "script failed: %s\n", error ? error->message : "?");
            }
            pending->done = true;
        }, &pending);
    waitUntil([&] { return pending.done; }, 120s);
    return pending.value;
}

} // namespace

int main(int argc, char** argv) {
    pinEnvironment();
    int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    if (!gtk_init_check()) {
        std::fprintf(stderr, "paste_bench needs a display (xvfb-run).\n");
        return 1;
    }

    WebKitWebView* view = WEBKIT_WEB_VIEW(webkit_web_view_new());
    WebKitUserContentManager* manager = webkit_web_view_get_user_content_manager(view);
    for (const auto& item : PageBridges::items()) {
        if (item.name != "bridges/table-paste.js")
            continue;
        WebKitUserScript* script = PageBridges::script(item);
        if (!script) {
            std::fprintf(stderr, "the table-paste script is missing\n");
            return 1;
        }
        webkit_user_content_manager_add_script(manager, script);
        webkit_user_script_unref(script);
    }
    GtkWindow* window = GTK_WINDOW(gtk_window_new());
    gtk_window_set_default_size(window, 1024, 768);
    gtk_window_set_child(window, GTK_WIDGET(view));
    gtk_window_present(window);
    bool loaded = false;
    g_signal_connect(view, "load-changed", G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, gpointer data) {
        if (event == WEBKIT_LOAD_FINISHED)
            *static_cast<bool*>(data) = true;
    }), &loaded);
    webkit_web_view_load_html(view, kPage, "http://127.0.0.1/");
    if (!waitUntil([&] { return loaded; }, 30s)) {
        std::fprintf(stderr, "the page did not load\n");
        return 1;
    }

    std::printf("table-paste script, %d runs per case (ms measured in the page)\n", runs);
    std::printf("%-42s %9s %9s %9s  %s\n", "case", "min", "median", "max", "result");
    const std::pair<const char*, const char*> cases[] = {
        { "table", "pipe table, 2,000 rows" },
        { "text", "5 MB text, a pipe per line, no table" },
        { "pipes", "10,000 pipes, near-delimiter line" },
    };
    for (const auto& [name, label] : cases) {
        std::string script = kRun;
        for (size_t at = script.find("CASE"); at != std::string::npos; at = script.find("CASE"))
            script.replace(at, 4, std::string("'") + name + "'");
        std::vector<double> times;
        nlohmann::json last;
        for (int i = 0; i < runs; ++i) {
            last = run(view, script);
            if (!last.is_object() || !last["ms"].is_number()) {
                std::fprintf(stderr, "%s: no result\n", name);
                return 1;
            }
            times.push_back(last["ms"].get<double>());
        }
        std::sort(times.begin(), times.end());
        std::string result = std::string(last["prevented"].get<bool>() ? "converted" : "left to the page") + ", "
            + std::to_string(last["tables"].get<int>()) + " table(s), " + std::to_string(last["size"].get<int64_t>()) + " chars";
        std::printf("%-42s %9.1f %9.1f %9.1f  %s\n", label, times.front(), times[times.size() / 2], times.back(), result.c_str());
    }
    gtk_window_destroy(window);
    return 0;
}
