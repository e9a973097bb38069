// A file a page downloads says so: a toast names it, and its "Show in Files"
// asks the desktop's file manager, on the session bus, to show that file.
#include "AtSpi.h"
#include "DesktopFiles.h"
#include "E2ETest.h"

namespace orvane::test {

namespace {

constexpr const char* kFileManager = R"XML(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowItems"><arg type="as"/><arg type="s"/></method>
</interface></node>)XML";

// The desktop's file manager as far as ShowItems goes: it records the URIs.
class FakeFileManager {
public:
    explicit FakeFileManager(GDBusConnection* bus) : m_bus(bus) {
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kFileManager, nullptr);
        static const GDBusInterfaceVTable vtable = { +[](GDBusConnection*, const char*, const char*, const char*, const char*,
            GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self) {
            GVariantIter* uris = nullptr;
            g_variant_get(parameters, "(ass)", &uris, nullptr);
            for (const char* uri = nullptr; g_variant_iter_next(uris, "&s", &uri);)
                static_cast<FakeFileManager*>(self)->shown.push_back(uri);
            g_variant_iter_free(uris);
            g_dbus_method_invocation_return_value(invocation, nullptr);
        }, nullptr, nullptr, {} };
        m_registration = g_dbus_connection_register_object(bus, DesktopFiles::kFileManagerPath, node->interfaces[0], &vtable, this, nullptr, nullptr);
        m_ownership = g_bus_own_name_on_connection(bus, DesktopFiles::kFileManagerName, G_BUS_NAME_OWNER_FLAGS_NONE,
            +[](GDBusConnection*, const char*, gpointer self) { static_cast<FakeFileManager*>(self)->owned = true; }, nullptr, this, nullptr);
        g_dbus_node_info_unref(node);
        waitUntil([&] { return owned; });
    }
    ~FakeFileManager() {
        g_bus_unown_name(m_ownership);
        g_dbus_connection_unregister_object(m_bus, m_registration);
    }

    bool owned = false;
    std::vector<std::string> shown;

private:
    GDBusConnection* m_bus;
    guint m_registration = 0, m_ownership = 0;
};

} // namespace

using DownloadTest = E2ETest;

TEST_F(DownloadTest, AFinishedDownloadIsToastedAndShownInFiles) {
    server.serve("/files/report.pdf", "%PDF-1.4 report", "application/pdf", 200,
        { { "Content-Disposition", "attachment; filename=\"report.pdf\"" } });
    serveWithRemote("/e2e/red.html", "/e2e/red.html");
    orvane.setEnvironment("GTK_A11Y", "atspi");
    ASSERT_TRUE(startOrvane("/e2e/red.html?who=gmail"));
    FakeFileManager files(orvane.bus());
    ASSERT_TRUE(files.owned);
    ASSERT_TRUE(orvane.activateAction("add-account"));
    ASSERT_TRUE(waitForEvents("gmail", "loaded"));
    AtSpi atspi(orvane.bus());
    ASSERT_TRUE(atspi);

    runInPage("gmail", "location.href = '/files/report.pdf'");
    EXPECT_TRUE(atspi.shows("label", { "“report.pdf” downloaded" })) << atspi.seen();
    EXPECT_TRUE(orvane.screenshot("download-toast"));
    ASSERT_TRUE(atspi.press("button", "Show in Files")) << atspi.seen();
    EXPECT_TRUE(atspi.shows("button", { "Downloads · Downloads" })) << atspi.seen();
    std::string file = std::string(orvane.getenv("HOME")) + "/Downloads/report.pdf";
    EXPECT_TRUE(waitUntil([&] { return files.shown.size() == 1; }, 10s));
    EXPECT_EQ(files.shown, std::vector<std::string> { "file://" + file });
    EXPECT_EQ(Files::read(file, 1 << 10), "%PDF-1.4 report");
}

} // namespace orvane::test
