#pragma once

#include "GRef.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <webkit/webkit.h>

#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

// The result of a script run in a page: the value as JSON, or the error.
struct JSResult {
    bool ok = false;
    nlohmann::json value;   // undefined comes back as null
    std::string error;
};

// A fixture with a real WebKitWebView in a shown 1024 x 768 window, over its
// own network session in a temporary folder, and a FixtureServer for pages.
// Objects handed to expectDeletedAtEnd() must be finalized by the end of
// the test, or it fails.
class WebViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string dir = makeTempFolder("session");
        session = webkit_network_session_new((dir + "/data").c_str(), (dir + "/cache").c_str());
        view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session", session, nullptr));
        window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(window, 1024, 768);
        gtk_window_set_child(window, GTK_WIDGET(view));
        gtk_window_present(window);
        expectDeletedAtEnd(view);
    }
    void TearDown() override;

    // Loads a URI and waits for WEBKIT_LOAD_FINISHED.
    bool loadAndWait(const std::string& uri, std::chrono::milliseconds timeout = 15s);
    bool loadFixture(const std::string& path) { return loadAndWait(server.uri(path)); }

    // Evaluates a program in the page world and waits for its value.
    JSResult runJS(const std::string& script, std::chrono::milliseconds timeout = 15s);
    // Runs an async function body with named arguments (strings, numbers,
    // booleans) and waits for the promise to settle.
    JSResult callAsync(const std::string& body, const nlohmann::json& arguments = nlohmann::json::object(),
        std::chrono::milliseconds timeout = 15s);
    // Waits until `expression` evaluates to true in the page.
    bool waitForJS(const std::string& expression, std::chrono::milliseconds timeout = 10s);

    void expectDeletedAtEnd(gpointer object) {
        m_watched.reserve(64); // weak pointers point into the vector: never reallocate
        ASSERT_LT(m_watched.size(), 64u);
        m_watched.push_back(object);
        g_object_add_weak_pointer(G_OBJECT(object), &m_watched.back());
    }

    // Builds the a{sv} WebKit expects from a flat JSON object.
    static GVariant* toVariantDictionary(const nlohmann::json& arguments);

    FixtureServer server;
    WebKitNetworkSession* session = nullptr; // owned
    WebKitWebView* view = nullptr;          // owned by window
    GtkWindow* window = nullptr;            // owned

private:
    std::vector<gpointer> m_watched;
};

JSResult resultFromJSC(JSCValue* value, GError* error);

} // namespace orvane::test
