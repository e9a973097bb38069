#pragma once

// What the tests of real web views share: a FixtureServer for pages, scripts
// run in any view, a WebViewManager over a fresh AccountStore, in fresh XDG
// folders, with the services pointed at the fixture server and the account
// views shown in one window, and a leak check: objects handed to
// expectDeletedAtEnd() must be finalized by the end of the test, or it fails.

#include "AccountBridges.h"
#include "AccountStore.h"
#include "Files.h"
#include "GRef.h"
#include "HeapBox.h"
#include "WebViewManager.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/TestServices.h"
#include "support/TestWebHost.h"
#include "support/Wait.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <webkit/webkit.h>

#include <algorithm>
#include <map>
#include <memory>

namespace orvane::test {

// The result of a script run in a page: the value as JSON, or the error.
struct JSResult {
    bool ok = false;
    nlohmann::json value; // undefined comes back as null
    std::string error;
};

inline JSResult resultFromJSC(JSCValue* value, GError* error) {
    if (!value)
        return JSResult { false, nullptr, error ? error->message : "no value" };
    JSResult result { true, nullptr, {} };
    GCharPtr json(jsc_value_is_undefined(value) ? nullptr : jsc_value_to_json(value, 0));
    if (json)
        result.value = nlohmann::json::parse(json.get(), nullptr, false);
    return result;
}

class ManagerWebFixture : public ::testing::Test {
protected:
    // Evaluates a program in the page world and waits for its value (not
    // for a promise: the page's own tasks run on before the answer comes).
    // An answer after the timeout lands in memory the caller no longer needs.
    static JSResult runJS(WebKitWebView* view, const std::string& script,
        std::chrono::milliseconds timeout = 15s) {
        struct Pending {
            bool done = false;
            JSResult result;
        };
        auto pending = std::make_shared<Pending>();
        webkit_web_view_evaluate_javascript(view, script.c_str(), gssize(script.size()), nullptr, nullptr,
            nullptr, +[](GObject* from, GAsyncResult* res, gpointer data) {
                auto p = HeapBox::take<std::shared_ptr<Pending>>(data);
                GErrorPtr error;
                Ref<JSCValue> value = adopt(
                    webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(from), res, GErrorOut(error)));
                (*p)->result = resultFromJSC(value.get(), error.get());
                (*p)->done = true;
            }, HeapBox::make<std::shared_ptr<Pending>>(pending));
        if (!waitUntil([&] { return pending->done; }, timeout))
            return JSResult { false, nullptr, "timed out" };
        return pending->result;
    }
    // The value of an expression that must run.
    static nlohmann::json js(WebKitWebView* view, const std::string& expression) {
        auto result = runJS(view, expression);
        EXPECT_TRUE(result.ok) << expression << ": " << result.error;
        return result.value;
    }
    // Runs a statement that must run (its value may be one no JSON holds).
    static void run(WebKitWebView* view, const std::string& statement) { js(view, statement + "; true"); }
    // Waits until `expression` evaluates to true in the page.
    static bool waitForJS(WebKitWebView* view, const std::string& expression,
        std::chrono::milliseconds timeout = 10s) {
        return waitUntil([&] {
            auto result = runJS(view, "!!(" + expression + ")", 5s);
            return result.ok && result.value == true;
        }, timeout);
    }

    void expectDeletedAtEnd(gpointer object) {
        m_watched.reserve(64); // weak pointers point into the vector: never reallocate
        ASSERT_LT(m_watched.size(), 64u);
        m_watched.push_back(object);
        g_object_add_weak_pointer(G_OBJECT(object), &m_watched.back());
    }

    // Each test runs in its own process, so the service catalogue is built
    // from these paths the first time anything reads it: the manager is
    // made here, after them, with the bridges the application adds, and
    // configured with the store.
    void useServices(const std::string& gmailPath, const std::string& outlookPath = "/outlook/mail/",
        std::chrono::milliseconds unreadPollInterval = WebViewManager::kUnreadPollInterval) {
        nlohmann::json overrides;
        for (const auto& [name, path] : { std::pair { "gmail", gmailPath }, { "outlook", outlookPath },
                 { "calendar", std::string("/calendar/") } })
            overrides[name] = { { "homeURL", server.uri(path) }, { "inAppHosts", { "127.0.0.1" } } };
        overrides["gmail"]["feedURL"] = server.uri("/gmail/feed/atom");
        std::string path = makeTempFolder("overrides") + "/services.json";
        ASSERT_TRUE(Files::replaceAtomically(path, overrides.dump()));
        g_setenv("ORVANE_SERVICE_OVERRIDES", path.c_str(), TRUE);
        ASSERT_EQ(testServices().gmail().homeURL, server.uri(gmailPath)) << "the catalogue was built before the test";
        manager = std::make_unique<WebViewManager>(host, testServices(), unreadPollInterval);
        bridges = &manager->addExtension(std::make_unique<AccountBridges>(*manager));
        manager->configure(*store);
    }

    void SetUp() override {
        freshXDGFolders();
        window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(window, 1024, 768);
        stack = GTK_STACK(gtk_stack_new());
        gtk_window_set_child(window, GTK_WIDGET(stack));
        gtk_window_present(window);
        store = std::make_unique<AccountStore>();
    }

    void TearDown() override {
        manager.reset();
        store.reset();
        gtk_window_destroy(window);
        bool allGone = waitUntil([&] {
            return std::ranges::all_of(m_watched, [](gpointer p) { return !p; });
        }, 5s);
        for (auto& p : m_watched)
            if (p)
                g_object_remove_weak_pointer(G_OBJECT(p), &p);
        EXPECT_TRUE(allGone) << "an object made by the test outlived it";
    }

    // The account's view, shown in the window's stack.
    WebKitWebView* show(const Account& account) {
        WebKitWebView* view = manager->webView(account);
        if (!gtk_widget_get_parent(GTK_WIDGET(view)))
            gtk_stack_add_child(stack, GTK_WIDGET(view));
        gtk_stack_set_visible_child(stack, GTK_WIDGET(view));
        return view;
    }
    // A view of no account, over the default session, shown in the window.
    WebKitWebView* showPlainView() {
        view = WEBKIT_WEB_VIEW(webkit_web_view_new());
        gtk_stack_add_child(stack, GTK_WIDGET(view));
        expectDeletedAtEnd(view);
        return view;
    }
    // A new Gmail account's view, shown and loaded.
    WebKitWebView* showNewAccount() {
        WebKitWebView* shown = show(store->addAccount());
        EXPECT_TRUE(waitLoaded(shown));
        return shown;
    }

    static bool waitLoaded(WebKitWebView* view, std::chrono::milliseconds timeout = 15s) {
        return waitUntil([&] {
            return !webkit_web_view_is_loading(view) && webkit_web_view_get_uri(view)
                && g_str_has_prefix(webkit_web_view_get_uri(view), "http");
        }, timeout);
    }
    // Loads a page of the fixture server in the view.
    bool loadFixture(WebKitWebView* page, const std::string& path) {
        webkit_web_view_load_uri(page, server.uri(path).c_str());
        return waitLoaded(page);
    }
    // The first pop-up the account's page opens from now on; it must be gone by the end.
    WebKitWebView* nextPopup(WebKitWebView* opener, const std::string& openScript) {
        WebKitWebView* popup = nullptr;
        auto subscription = manager->observePopups([&](const std::string&, WebKitWebView* opened) { popup = opened; });
        run(opener, openScript);
        EXPECT_TRUE(waitUntil([&] { return popup != nullptr; }));
        if (popup)
            expectDeletedAtEnd(popup);
        return popup;
    }

    // The shown windows of a type (dialogs, choosers).
    static std::vector<GtkWindow*> toplevels(GType type) {
        std::vector<GtkWindow*> found;
        GListModel* all = gtk_window_get_toplevels();
        for (guint i = 0; i < g_list_model_get_n_items(all); ++i) {
            Ref<GtkWindow> shown = adopt(GTK_WINDOW(g_list_model_get_item(all, i)));
            if (G_TYPE_CHECK_INSTANCE_TYPE(shown.get(), type)
                && gtk_widget_get_visible(GTK_WIDGET(shown.get())))
                found.push_back(shown.get());
        }
        return found;
    }
    // Gives a session a cookie for a host.
    static void addCookie(WebKitNetworkSession* session, const char* name, const char* value,
        const char* host) {
        SoupCookie* cookie = soup_cookie_new(name, value, host, "/", 3600);
        bool done = false;
        webkit_cookie_manager_add_cookie(webkit_network_session_get_cookie_manager(session), cookie, nullptr,
            +[](GObject*, GAsyncResult*, gpointer added) { *static_cast<bool*>(added) = true; }, &done);
        soup_cookie_free(cookie);
        EXPECT_TRUE(waitUntil([&] { return done; }));
    }

    // Points the user's Downloads folder at `folder` (read at each download).
    static void useDownloadsFolder(const std::string& folder) {
        ASSERT_TRUE(Files::replaceAtomically(std::string(g_getenv("XDG_CONFIG_HOME")) + "/user-dirs.dirs",
            "XDG_DOWNLOAD_DIR=\"" + folder + "\"\n"));
    }
    // The files in a folder and what they hold ("<link>" for a symbolic link).
    static std::map<std::string, std::string> filesIn(const std::string& folder) {
        std::map<std::string, std::string> files;
        GDir* dir = g_dir_open(folder.c_str(), 0, nullptr);
        while (const char* name = dir ? g_dir_read_name(dir) : nullptr) {
            std::string path = folder + "/" + name;
            bool link = g_file_test(path.c_str(), G_FILE_TEST_IS_SYMLINK);
            files[name] = link ? "<link>" : Files::read(path, 64 << 20).value_or("?");
        }
        if (dir)
            g_dir_close(dir);
        return files;
    }

    FixtureServer server;
    TestWebHost host;
    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    AccountBridges* bridges = nullptr; // owned by manager
    WebKitWebView* view = nullptr;     // the test's main view, owned by manager or stack
    GtkWindow* window = nullptr; // owned
    GtkStack* stack = nullptr;   // owned by window

private:
    std::vector<gpointer> m_watched;
};

} // namespace orvane::test
