#pragma once

#include "GRef.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <webkit/webkit.h>

#include <map>
#include <string>
#include <vector>

namespace orvane::test {

// The result of a script run in a page: the value as JSON, or the error.
struct JSResult {
    bool ok = false;
    nlohmann::json value;   // undefined comes back as null
    std::string error;
};

JSResult resultFromJSC(JSCValue* value, GError* error);

// What every test of real web views shares: a FixtureServer for pages,
// scripts run in any view, and a leak check: objects handed to
// expectDeletedAtEnd() must be finalized by the end of the test, or it fails.
class WebTest : public ::testing::Test {
protected:
    void TearDown() override;

    // Runs an async function body in the page world with named text
    // arguments and waits for its promise to settle.
    static JSResult callAsync(WebKitWebView* view, const std::string& body,
        const std::map<std::string, std::string>& arguments = {}, std::chrono::milliseconds timeout = 15s);
    // Evaluates a program in the page world and waits for its value (not
    // for a promise: the page's own tasks run on before the answer comes).
    static JSResult runJS(WebKitWebView* view, const std::string& script, std::chrono::milliseconds timeout = 15s);
    // The value of an expression that must run.
    static nlohmann::json js(WebKitWebView* view, const std::string& expression) {
        auto result = runJS(view, expression);
        EXPECT_TRUE(result.ok) << expression << ": " << result.error;
        return result.value;
    }
    // Runs a statement that must run (its value may be one no JSON holds).
    static void run(WebKitWebView* view, const std::string& statement) { js(view, statement + "; true"); }
    // Waits until `expression` evaluates to true in the page.
    static bool waitForJS(WebKitWebView* view, const std::string& expression, std::chrono::milliseconds timeout = 10s);
    // Loads a fixture page and waits for WEBKIT_LOAD_FINISHED.
    bool loadFixture(WebKitWebView* view, const std::string& path);

    void expectDeletedAtEnd(gpointer object) {
        m_watched.reserve(64); // weak pointers point into the vector: never reallocate
        ASSERT_LT(m_watched.size(), 64u);
        m_watched.push_back(object);
        g_object_add_weak_pointer(G_OBJECT(object), &m_watched.back());
    }

    FixtureServer server;

private:
    std::vector<gpointer> m_watched;
};

} // namespace orvane::test
