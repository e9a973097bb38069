#include "NativeImageFetch.h"
#include "SaveImageWebView.h"

#include "app/XInput.h"
#include "web/ManagerWebFixture.h"

#include <algorithm>
#include <array>
#include <map>

namespace orvane::test {
namespace {

// A menu as GTK shows it: each item's label, action and string target,
// sections flattened in order.
using ShownItem = std::array<std::string, 3>;
void collectShown(GMenuModel* model, std::vector<ShownItem>& items) {
    for (int i = 0; i < g_menu_model_get_n_items(model); ++i) {
        if (Ref<GMenuModel> section = adopt(g_menu_model_get_item_link(model, i, G_MENU_LINK_SECTION))) {
            collectShown(section.get(), items);
            continue;
        }
        ShownItem& item = items.emplace_back();
        int field = 0;
        for (const char* attribute : { G_MENU_ATTRIBUTE_LABEL, G_MENU_ATTRIBUTE_ACTION, G_MENU_ATTRIBUTE_TARGET }) {
            GVariantPtr value { g_menu_model_get_item_attribute_value(model, i, attribute, G_VARIANT_TYPE_STRING) };
            item[field++] = value ? g_variant_get_string(value.get(), nullptr) : "";
        }
    }
}

GtkPopoverMenu* shownMenu(GtkWidget* widget) {
    for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
        if (GTK_IS_POPOVER_MENU(child) && gtk_widget_get_visible(child))
            return GTK_POPOVER_MENU(child);
        if (GtkPopoverMenu* found = shownMenu(child))
            return found;
    }
    return nullptr;
}

class SaveImageWebTest : public ManagerWebFixture {
protected:
    // Saves and waits for the outcome: the file's name in Downloads, or "".
    std::string saveAndWait(const std::string& src) {
        std::optional<std::optional<std::string>> outcome;
        saving->save(src, [&](const std::optional<std::string>& path) { outcome = path; });
        EXPECT_TRUE(waitUntil([&] { return outcome.has_value(); }, 30s)) << src;
        return outcome && *outcome ? (*outcome)->substr((*outcome)->rfind('/') + 1) : "";
    }

    SaveImageWebView* saving = nullptr;
};

// Which cookies go with a native fetch, and which addresses and answers it
// refuses, are HTTPFetchTest's.
TEST_F(SaveImageWebTest, ImagesSaveThroughThePageOrNativelyAndFromOrvanesItemsInPlaceOfWebKits) {
    const std::string downloads = makeTempFolder("saved") + "/Downloads";
    useDownloadsFolder(downloads);
    const std::string png =
        Files::read(FixtureServer::fixturesDir() + "/files/pixel.png", 1 << 20).value_or("");
    useServices("/files/page.html");
    view = showNewAccount();
    ASSERT_TRUE(saving = SaveImageWebView::of(view));
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.some(e => e[0] === 'blob-ready')"));
    // Another account, with its own session and its own cookie for the same host.
    addCookie(webkit_web_view_get_network_session(showNewAccount()), "theirs", "1", "localhost");
    addCookie(webkit_web_view_get_network_session(view), "mine", "1", "localhost");

    // Same-origin and blob: images come through the page, named "image" + type.
    EXPECT_EQ(saveAndWait(server.uri("/files/pixel.png")), "image.png");
    EXPECT_EQ(saveAndWait(js(view, "document.getElementById('blob').src").get<std::string>()), "image 1.png");
    // A cross-origin image without CORS: fetched natively, named after its
    // address, with this account's cookie and the view's agent.
    EXPECT_EQ(saveAndWait(server.uriOnHost("localhost", "/files/cross.png")), "cross.png");
    auto native = server.requests("/files/cross.png").back().headers;
    EXPECT_EQ(native["cookie"], "mine=1");
    EXPECT_EQ(native["user-agent"], webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));

    // A missing image and one too large: nothing is written.
    server.serve("/files/huge.png", std::string(NativeImageFetch::kMaxBytes + 1, 'x'), "image/png");
    for (const char* path : { "/files/missing.png", "/files/huge.png" })
        EXPECT_EQ(saveAndWait(server.uriOnHost("localhost", path)), "") << path;
    EXPECT_EQ(host.failures, std::vector<std::string>(2, "Could not save the image: it could not be fetched"));
    const std::string in = downloads + "/";
    EXPECT_EQ(host.savedFiles,
        (std::vector<std::string> { in + "image.png", in + "image 1.png", in + "cross.png" }));
    const std::string cross = Files::read(FixtureServer::fixturesDir() + "/files/cross.png", 1 << 20).value_or("");
    EXPECT_EQ(filesIn(downloads),
        (std::map<std::string, std::string> { { "image.png", png }, { "image 1.png", png }, { "cross.png", cross } }));

    // A right-click reports the image and link under the pointer; the menu
    // that follows gets Orvane's items in place of WebKit's, under WebKit's
    // labels and carrying their addresses.
    ASSERT_TRUE(canSendXInput(GTK_WIDGET(view))) << "needs X11 and xdotool (tools/setup.sh installs them)";
    gtk_stack_set_visible_child(stack, GTK_WIDGET(view));
    const auto at = js(view, "(r => [r.left + r.width / 2, r.top + r.height / 2])"
        "(document.getElementById('linked').getBoundingClientRect())");
    auto rightClick = [&] {
        std::vector<ShownItem> items;
        GtkPopoverMenu* popover = nullptr;
        if (pointerAt(GTK_WIDGET(view), { "click", "3" }, at[0].get<double>(), at[1].get<double>())
            && waitUntil([&] { return (popover = shownMenu(GTK_WIDGET(view))) != nullptr; }))
            collectShown(gtk_popover_menu_get_menu_model(popover), items);
        return std::pair(popover, items);
    };
    auto close = [&](GtkPopoverMenu* popover) {
        gtk_popover_popdown(GTK_POPOVER(popover));
        return waitUntil([&] { return !shownMenu(GTK_WIDGET(view)); });
    };
    g_signal_handlers_block_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, saving);
    auto [stockPopover, stock] = rightClick();
    g_signal_handlers_unblock_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, saving);
    ASSERT_TRUE(stockPopover && close(stockPopover));
    auto [popover, items] = rightClick();
    ASSERT_TRUE(popover);
    auto sameLabel = [](const ShownItem& a, const ShownItem& b) { return a[0] == b[0]; };
    EXPECT_TRUE(std::ranges::equal(items, stock, sameLabel)) << "WebKit's labels, in WebKit's order";
    std::map<std::string, ShownItem> orvanes; // by action
    for (const auto& item : items)
        if (size_t name = item[1].find("orvane-"); name != std::string::npos)
            orvanes[item[1].substr(name)] = item;
    EXPECT_EQ(orvanes.size(), 2u);
    EXPECT_EQ(orvanes["orvane-save-image"][2], server.uri("/files/pixel.png"));
    EXPECT_EQ(orvanes["orvane-download-linked-file"][2], server.uri("/files/attachment.pdf"));
    // A menu without a report of its own (a frame of another site) keeps WebKit's items.
    Ref<WebKitContextMenu> unreported = adopt(webkit_context_menu_new());
    const auto download = WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_IMAGE_TO_DISK;
    webkit_context_menu_append(unreported.get(), webkit_context_menu_item_new_from_stock_action(download));
    saving->retarget(unreported.get());
    EXPECT_EQ(webkit_context_menu_item_get_stock_action(webkit_context_menu_first(unreported.get())),
        download);

    // Choosing the items saves the image and downloads the linked file.
    server.serve("/files/attachment.pdf", "%PDF", "application/pdf");
    for (const auto& [action, item] : orvanes)
        EXPECT_TRUE(gtk_widget_activate_action_variant(GTK_WIDGET(popover), item[1].c_str(),
            g_variant_new_string(item[2].c_str()))) << action;
    EXPECT_TRUE(waitUntil([&] {
        auto files = filesIn(downloads);
        return files.size() == 5 && files["image 2.png"] == png && files["attachment.pdf"] == "%PDF";
    }, 20s));
    close(popover);
}

} // namespace
} // namespace orvane::test
