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

std::string makeTempFolder(const std::string& prefix) {
    std::string pattern = s_root + "/" + prefix + "-XXXXXX";
    return g_mkdtemp_full(pattern.data(), 0700) ? pattern : std::string();
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

    g_setenv("HOME", makeTempFolder("home").c_str(), TRUE);
    freshXDGFolders();
    g_setenv("XDG_RUNTIME_DIR", makeTempFolder("runtime").c_str(), FALSE);
    for (const auto& [name, value] : { std::pair { "GSETTINGS_BACKEND", "memory" }, { "LC_ALL", "C" }, { "LANGUAGE", "C" },
             { "GTK_IM_MODULE", "none" }, { "GTK_A11Y", "test" }, { "NO_AT_BRIDGE", "1" }, { "WEBKIT_DISABLE_COMPOSITING_MODE", "1" } })
        g_setenv(name, value, TRUE);
    for (const char* name : { "ORVANE_SERVICE_OVERRIDES", "ORVANE_PING_URL", "ORVANE_APPCAST_URL", "ORVANE_PRINT_TO_PDF" })
        g_unsetenv(name);
}

void sendServicesNowhere() {
    std::string overrides = makeTempFolder("overrides") + "/services.json";
    Files::replaceAtomically(overrides, R"({"gmail":{"homeURL":"http://127.0.0.1:9/"},)"
        R"("calendar":{"homeURL":"http://127.0.0.1:9/"},"outlook":{"homeURL":"http://127.0.0.1:9/"}})");
    g_setenv("ORVANE_SERVICE_OVERRIDES", overrides.c_str(), TRUE);
}

} // namespace orvane::test
