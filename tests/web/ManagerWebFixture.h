#pragma once

// A WebViewManager over a fresh AccountStore, in fresh XDG folders, with the
// services pointed at the fixture server, and the account views shown in one
// window. Shared by the web and bridge tests.

#include "AccountBridges.h"
#include "AccountStore.h"
#include "Files.h"
#include "WebViewManager.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/TestServices.h"
#include "support/TestWebHost.h"
#include "support/Wait.h"
#include "support/WebViewTest.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace orvane::test {

class ManagerWebFixture : public ::testing::Test {
protected:
    // Each test runs in its own process, so the service catalogue is built
    // from these paths the first time anything reads it: the manager is
    // made here, after them.
    void useServices(const std::string& gmailPath, const std::string& outlookPath = "/outlook/mail/",
        const std::string& calendarPath = "/calendar/") {
        nlohmann::json overrides;
        for (const auto& [name, path] : { std::pair { "gmail", gmailPath }, { "outlook", outlookPath }, { "calendar", calendarPath } })
            overrides[name] = { { "homeURL", server.uri(path) }, { "inAppHosts", { "127.0.0.1" } } };
        overrides["gmail"]["feedURL"] = server.uri("/gmail/feed/atom");
        std::string path = makeTempFolder("overrides") + "/services.json";
        ASSERT_TRUE(Files::replaceAtomically(path, overrides.dump()));
        g_setenv("ORVANE_SERVICE_OVERRIDES", path.c_str(), TRUE);
        ASSERT_EQ(testServices().gmail().homeURL, server.uri(gmailPath)) << "the catalogue was built before the test";
        makeManager();
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
    // A manager with the bridges the application adds to every view.
    void makeManager(std::chrono::milliseconds unreadPollInterval = WebViewManager::kUnreadPollInterval) {
        manager.reset();
        manager = std::make_unique<WebViewManager>(host, testServices(), unreadPollInterval);
        bridges = &manager->addExtension(std::make_unique<AccountBridges>(*manager));
    }

    void TearDown() override {
        manager.reset();
        store.reset();
        gtk_window_destroy(window);
        bool allGone = waitUntil([&] { return std::ranges::all_of(m_watched, [](gpointer p) { return !p; }); }, 5s);
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

    static bool waitLoaded(WebKitWebView* view, std::chrono::milliseconds timeout = 15s) {
        return waitUntil([&] {
            return !webkit_web_view_is_loading(view) && webkit_web_view_get_uri(view)
                && g_str_has_prefix(webkit_web_view_get_uri(view), "http");
        }, timeout);
    }

    static JSResult runJS(WebKitWebView* view, const std::string& script, std::chrono::milliseconds timeout = 10s) {
        struct Pending {
            bool done = false;
            JSResult result;
        };
        auto pending = std::make_shared<Pending>();
        webkit_web_view_evaluate_javascript(view, script.c_str(), gssize(script.size()), nullptr, nullptr, nullptr,
            [](GObject* source, GAsyncResult* res, gpointer data) {
                std::unique_ptr<std::shared_ptr<Pending>> p(static_cast<std::shared_ptr<Pending>*>(data));
                GErrorPtr error;
                Ref<JSCValue> value = adopt(
                    webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), res, GErrorOut(error)));
                (*p)->result = resultFromJSC(value.get(), error.get());
                (*p)->done = true;
            },
            new std::shared_ptr<Pending>(pending));
        if (!waitUntil([&] { return pending->done; }, timeout))
            return JSResult { false, nullptr, "timed out" };
        return pending->result;
    }

    static bool waitForJS(WebKitWebView* view, const std::string& expression, std::chrono::milliseconds timeout = 10s) {
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

    FixtureServer server;
    TestWebHost host;
    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    AccountBridges* bridges = nullptr; // owned by manager
    GtkWindow* window = nullptr; // owned
    GtkStack* stack = nullptr;   // owned by window
    std::vector<std::string>& browserURIs = host.browserURIs; // what went to the browser
    std::vector<std::string>& mailURIs = host.mailURIs;       // what went to the mail-link routing

private:
    std::vector<gpointer> m_watched;
};

} // namespace orvane::test
