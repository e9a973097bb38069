#pragma once

// A WebViewManager over a fresh AccountStore, in fresh XDG folders, with the
// services pointed at the fixture server. Shared by the *WebTest.cpp files of
// this folder.

#include "AccountStore.h"
#include "Files.h"
#include "MailService.h"
#include "support/TestServices.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"
#include "support/WebViewTest.h"
#include "NavigationDelegate.h"
#include "WebViewManager.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

namespace orvane::test {

class ManagerWebFixture : public ::testing::Test {
protected:
    // Each test runs in its own process, so the service catalogue is built
    // from these paths the first time anything reads it.
    void useServices(const std::string& gmailPath, const std::string& outlookPath = "/outlook/mail/",
        const std::string& calendarPath = "/calendar/") {
        nlohmann::json overrides = {
            { "gmail", { { "homeURL", server.uri(gmailPath) }, { "inAppHosts", { "127.0.0.1" } } } },
            { "outlook", { { "homeURL", server.uri(outlookPath) }, { "inAppHosts", { "127.0.0.1" } } } },
            { "calendar", { { "homeURL", server.uri(calendarPath) }, { "inAppHosts", { "127.0.0.1" } } } },
        };
        std::string path = makeTempFolder("overrides") + "/services.json";
        ASSERT_TRUE(Files::replaceAtomically(path, overrides.dump()));
        g_setenv("ORVANE_SERVICE_OVERRIDES", path.c_str(), TRUE);
        ASSERT_EQ(test::testServices().gmail().homeURL, server.uri(gmailPath)) << "the catalogue was built before the test";
    }

    void SetUp() override {
        freshXDGFolders();
        NavigationDelegate::setBrowserOpener([this](const std::string& uri) { browserURIs.push_back(uri); });
        NavigationDelegate::setMailOpener([this](const std::string& uri) { mailURIs.push_back(uri); });
        window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(window, 1024, 768);
        stack = GTK_STACK(gtk_stack_new());
        gtk_window_set_child(window, GTK_WIDGET(stack));
        gtk_window_present(window);
        store = std::make_unique<AccountStore>();
        manager = std::make_unique<WebViewManager>();
    }

    void TearDown() override {
        manager.reset();
        store.reset();
        if (window)
            gtk_window_destroy(window);
        NavigationDelegate::setBrowserOpener({});
        NavigationDelegate::setMailOpener({});
        bool allGone = waitUntil([&] {
            for (gpointer p : m_watched)
                if (p)
                    return false;
            return true;
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
        auto* holder = new std::shared_ptr<Pending>(pending);
        webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr,
            nullptr,
            [](GObject* source, GAsyncResult* res, gpointer data) {
                std::unique_ptr<std::shared_ptr<Pending>> p(static_cast<std::shared_ptr<Pending>*>(data));
                GErrorPtr error;
                Ref<JSCValue> value = adopt(
                    webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), res, GErrorOut(error)));
                (*p)->result = resultFromJSC(value.get(), error.get());
                (*p)->done = true;
            },
            holder);
        if (!waitUntil([&] { return pending->done; }, timeout))
            return JSResult { false, nullptr, "timed out" };
        return pending->result;
    }

    static bool waitForJS(WebKitWebView* view, const std::string& expression, std::chrono::milliseconds timeout = 10s) {
        gint64 deadline = g_get_monotonic_time() + std::chrono::duration_cast<std::chrono::microseconds>(timeout).count();
        while (g_get_monotonic_time() < deadline) {
            auto result = runJS(view, "!!(" + expression + ")", 5s);
            if (result.ok && result.value == true)
                return true;
            bool tick = false;
            guint id = g_timeout_add(25, [](gpointer d) -> gboolean {
                *static_cast<bool*>(d) = true;
                return G_SOURCE_REMOVE;
            }, &tick);
            if (!waitUntil([&] { return tick; }, 1s))
                g_source_remove(id);
        }
        return false;
    }

    void expectDeletedAtEnd(gpointer object) {
        m_watched.reserve(64); // weak pointers point into the vector: never reallocate
        ASSERT_LT(m_watched.size(), 64u);
        m_watched.push_back(object);
        g_object_add_weak_pointer(G_OBJECT(object), &m_watched.back());
    }

    FixtureServer server;
    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    GtkWindow* window = nullptr; // owned
    GtkStack* stack = nullptr;   // owned by window
    std::vector<std::string> browserURIs;
    std::vector<std::string> mailURIs;

private:
    std::vector<gpointer> m_watched;
};

} // namespace orvane::test
