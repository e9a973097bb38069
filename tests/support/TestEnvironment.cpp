#include "support/TestEnvironment.h"

#include "Files.h"
#include "GRef.h"

#include <glib.h>

#include <cstdlib>

namespace orvane::test {

static std::string s_root;

static void removeRoot() {
    if (!s_root.empty() && !g_getenv("ORVANE_KEEP_TEST_FILES"))
        Files::removeTree(s_root);
}

const std::string& tempRoot() { return s_root; }

std::string makeTempFolder(const std::string& prefix) {
    std::string pattern = s_root + "/" + prefix + "-XXXXXX";
    GCharPtr made(g_mkdtemp_full(pattern.data(), 0700) ? g_strdup(pattern.c_str()) : nullptr);
    return made ? std::string(made.get()) : std::string();
}

std::string freshXDGFolders() {
    std::string data = makeTempFolder("data");
    g_setenv("XDG_DATA_HOME", data.c_str(), TRUE);
    g_setenv("XDG_CACHE_HOME", makeTempFolder("cache").c_str(), TRUE);
    g_setenv("XDG_CONFIG_HOME", makeTempFolder("config").c_str(), TRUE);
    return data;
}

void pinEnvironment() {
    if (!s_root.empty())
        return;
    GCharPtr root(g_dir_make_tmp("orvane-test-XXXXXX", nullptr));
    s_root = root ? root.get() : "/tmp";
    std::atexit(removeRoot);

    std::string home = makeTempFolder("home");
    g_setenv("HOME", home.c_str(), TRUE);
    freshXDGFolders();
    std::string runtime = makeTempFolder("runtime");
    if (!g_getenv("XDG_RUNTIME_DIR"))
        g_setenv("XDG_RUNTIME_DIR", runtime.c_str(), TRUE);
    g_setenv("GSETTINGS_BACKEND", "memory", TRUE);
    g_setenv("LC_ALL", "C", TRUE);
    g_setenv("LANGUAGE", "C", TRUE);
    g_setenv("GTK_IM_MODULE", "none", TRUE);
    g_setenv("GTK_A11Y", "none", TRUE);
    g_setenv("NO_AT_BRIDGE", "1", TRUE);
    g_setenv("WEBKIT_DISABLE_COMPOSITING_MODE", "1", TRUE);
    g_unsetenv("ORVANE_SERVICE_OVERRIDES");
    g_unsetenv("ORVANE_PING_URL");
    g_unsetenv("ORVANE_APPCAST_URL");
    g_unsetenv("ORVANE_PRINT_TO_PDF");
}

void sendServicesNowhere() {
    std::string overrides = makeTempFolder("overrides") + "/services.json";
    Files::replaceAtomically(overrides, R"({"gmail":{"homeURL":"http://127.0.0.1:9/"},)"
        R"("calendar":{"homeURL":"http://127.0.0.1:9/"},"outlook":{"homeURL":"http://127.0.0.1:9/"}})");
    g_setenv("ORVANE_SERVICE_OVERRIDES", overrides.c_str(), TRUE);
}

} // namespace orvane::test
