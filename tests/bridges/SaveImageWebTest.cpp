#include "NativeImageFetch.h"
#include "SaveImageWebView.h"

#include "app/XInput.h"
#include "web/ManagerWebFixture.h"

#include <map>

namespace orvane::test {
namespace {

std::map<std::string, std::string> filesIn(const std::string& folder) {
    std::map<std::string, std::string> files;
    if (GDir* dir = g_dir_open(folder.c_str(), 0, nullptr)) {
        while (const char* name = g_dir_read_name(dir))
            files[name] = Files::read(folder + "/" + name, 64 * 1024 * 1024).value_or("<unreadable>");
        g_dir_close(dir);
    }
    return files;
}

// What a test knows of one menu item: its stock action, or Orvane's action
// with the address it carries.
struct MenuItem {
    WebKitContextMenuAction stock;
    std::string action;
    std::string target;
    bool operator==(const MenuItem&) const = default;
};

std::vector<MenuItem> itemsOf(WebKitContextMenu* menu) {
    std::vector<MenuItem> items;
    for (GList* item = webkit_context_menu_get_items(menu); item; item = item->next) {
        auto* menuItem = WEBKIT_CONTEXT_MENU_ITEM(item->data);
        MenuItem described { webkit_context_menu_item_get_stock_action(menuItem), {}, {} };
        if (described.stock == WEBKIT_CONTEXT_MENU_ACTION_CUSTOM) {
            GAction* action = webkit_context_menu_item_get_gaction(menuItem);
            described.action = action ? g_action_get_name(action) : "";
        }
        items.push_back(described);
    }
    return items;
}

// A menu as GTK shows it: each item's label, action and target, sections
// flattened in order.
struct ShownItem {
    std::string label;
    std::string action;
    std::string target;
};

void collectShown(GMenuModel* model, std::vector<ShownItem>& items) {
    for (int i = 0; i < g_menu_model_get_n_items(model); ++i) {
        if (Ref<GMenuModel> section = adopt(g_menu_model_get_item_link(model, i, G_MENU_LINK_SECTION))) {
            collectShown(section.get(), items);
            continue;
        }
        ShownItem item;
        char* text = nullptr;
        if (g_menu_model_get_item_attribute(model, i, G_MENU_ATTRIBUTE_LABEL, "s", &text))
            item.label = GCharPtr(text).get();
        if (g_menu_model_get_item_attribute(model, i, G_MENU_ATTRIBUTE_ACTION, "s", &text))
            item.action = GCharPtr(text).get();
        if (GVariantPtr target { g_menu_model_get_item_attribute_value(model, i, G_MENU_ATTRIBUTE_TARGET, nullptr) };
            target && g_variant_is_of_type(target.get(), G_VARIANT_TYPE_STRING))
            item.target = g_variant_get_string(target.get(), nullptr);
        items.push_back(item);
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
    void SetUp() override {
        ManagerWebFixture::SetUp();
        downloads = makeTempFolder("saved") + "/Downloads";
        std::string dirs = std::string(g_getenv("XDG_CONFIG_HOME")) + "/user-dirs.dirs";
        ASSERT_TRUE(Files::replaceAtomically(dirs, "XDG_DOWNLOAD_DIR=\"" + downloads + "\"\n"));
        png = Files::read(FixtureServer::fixturesDir() + "/files/pixel.png", 1 << 20).value_or("");
        crossPNG = Files::read(FixtureServer::fixturesDir() + "/files/cross.png", 1 << 20).value_or("");
        ASSERT_FALSE(png.empty());
    }

    WebKitWebView* openAccount(Account& account) {
        account = store->addAccount();
        WebKitWebView* view = show(account);
        EXPECT_TRUE(waitLoaded(view));
        return view;
    }

    // Saves and waits for the outcome: the file's name in Downloads, or "".
    std::string saveAndWait(WebKitWebView* view, const std::string& src) {
        SaveImageWebView* saving = SaveImageWebView::of(view);
        EXPECT_TRUE(saving);
        if (!saving)
            return "";
        bool done = false;
        std::string name;
        saving->save(src, [&](const std::optional<std::string>& path) {
            done = true;
            if (path)
                name = path->substr(path->rfind('/') + 1);
        });
        EXPECT_TRUE(waitUntil([&] { return done; }, 30s)) << src;
        return name;
    }

    static void addCookie(WebKitWebView* view, const char* name, const char* value, const char* domain,
        bool secure = false) {
        SoupCookie* cookie = soup_cookie_new(name, value, domain, "/", 3600);
        soup_cookie_set_secure(cookie, secure);
        bool done = false;
        webkit_cookie_manager_add_cookie(webkit_network_session_get_cookie_manager(webkit_web_view_get_network_session(view)),
            cookie, nullptr, [](GObject*, GAsyncResult*, gpointer d) { *static_cast<bool*>(d) = true; }, &done);
        soup_cookie_free(cookie);
        EXPECT_TRUE(waitUntil([&] { return done; }));
    }

    std::string downloads;
    std::string png;
    std::string crossPNG;
};

TEST(NativeImageFetchTest, CookiesGoOnlyToTheirOwnHost) {
    EXPECT_TRUE(NativeImageFetch::domainMatches(".google.com", "lh3.google.com"));
    EXPECT_TRUE(NativeImageFetch::domainMatches(".google.com", "google.com"));
    EXPECT_TRUE(NativeImageFetch::domainMatches(".Google.COM", "LH3.google.com"));
    EXPECT_FALSE(NativeImageFetch::domainMatches(".google.com", "evilgoogle.com"));
    EXPECT_FALSE(NativeImageFetch::domainMatches(".google.com", "google.com.evil.org"));
    EXPECT_TRUE(NativeImageFetch::domainMatches("mail.google.com", "mail.google.com"));
    EXPECT_FALSE(NativeImageFetch::domainMatches("google.com", "mail.google.com")); // host-only
    EXPECT_FALSE(NativeImageFetch::domainMatches(".", "com"));
    EXPECT_FALSE(NativeImageFetch::domainMatches("", "example.org"));

    GList* cookies = nullptr;
    auto add = [&](const char* name, const char* domain, bool secure) {
        SoupCookie* cookie = soup_cookie_new(name, "v", domain, "/", 3600);
        soup_cookie_set_secure(cookie, secure);
        cookies = g_list_append(cookies, cookie);
    };
    add("parent", ".example.org", false);
    add("host", "img.example.org", false);
    add("secure", "img.example.org", true);
    add("other", "mail.example.org", false);
    add("tail", "ample.org", false);
    EXPECT_EQ(NativeImageFetch::cookieHeader(cookies, "img.example.org", true), "parent=v; host=v; secure=v");
    EXPECT_EQ(NativeImageFetch::cookieHeader(cookies, "img.example.org", false), "parent=v; host=v");
    EXPECT_EQ(NativeImageFetch::cookieHeader(cookies, "example.org", false), "parent=v");
    EXPECT_EQ(NativeImageFetch::cookieHeader(cookies, "elsewhere.net", true), "");
    g_list_free_full(cookies, reinterpret_cast<GDestroyNotify>(soup_cookie_free));
}

TEST_F(SaveImageWebTest, ImagesSaveThroughThePageOrNativelyWithOnlyTheirHostsCookies) {
    useServices("/files/page.html");
    Account mine;
    WebKitWebView* view = openAccount(mine);
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.some(e => e[0] === 'blob-ready')"));
    // Another account, with its own session and its own cookie for the same host.
    Account other = store->addAccount();
    WebKitWebView* otherView = show(other);
    ASSERT_TRUE(waitLoaded(otherView));
    ASSERT_NE(mine.dataStoreID, other.dataStoreID);
    addCookie(otherView, "theirs", "2", "localhost");
    addCookie(view, "mine", "1", "localhost");
    addCookie(view, "secret", "s", "localhost", true); // Secure: never over http
    addCookie(view, "page", "p", "127.0.0.1");         // another host's

    // A same-origin image comes through the page: "image" + its type.
    EXPECT_EQ(saveAndWait(view, server.uri("/files/pixel.png")), "image.png");
    // A blob: address can only be read in the page.
    std::string blob = runJS(view, "document.getElementById('blob').src").value.get<std::string>();
    ASSERT_EQ(blob.rfind("blob:", 0), 0u);
    EXPECT_EQ(saveAndWait(view, blob), "image 1.png");

    // A cross-origin image without CORS: fetched natively, named after its
    // address, with this account's cookie for that host and nothing else.
    server.resetCounts();
    EXPECT_EQ(saveAndWait(view, server.uriOnHost("localhost", "/files/cross.png")), "cross.png");
    auto requests = server.requests("/files/cross.png");
    ASSERT_FALSE(requests.empty());
    const auto& native = requests.back();
    EXPECT_EQ(native.headers.count("cookie") ? native.headers.at("cookie") : "", "mine=1");
    EXPECT_EQ(native.headers.count("user-agent") ? native.headers.at("user-agent") : "",
        webkit_settings_get_user_agent(webkit_web_view_get_settings(view)));
    for (const auto& request : requests)
        EXPECT_EQ(request.headers.count("cookie") ? request.headers.at("cookie").find("theirs") : std::string::npos,
            std::string::npos);

    // A redirect to another host drops the cookies, even that host's own.
    server.handle("/files/hop", [&](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_redirect(message, 302, server.uri("/files/landing.png").c_str());
    });
    server.serve("/files/landing.png", crossPNG, "image/png");
    server.resetCounts();
    EXPECT_EQ(saveAndWait(view, server.uriOnHost("localhost", "/files/hop")), "image 2.png");
    ASSERT_GE(server.requestCount("/files/hop"), 1);
    EXPECT_EQ(server.requests("/files/hop").back().headers.at("cookie"), "mine=1");
    ASSERT_GE(server.requestCount("/files/landing.png"), 1);
    EXPECT_FALSE(server.requests("/files/landing.png").back().headers.count("cookie"));

    auto files = filesIn(downloads);
    EXPECT_EQ(files, (std::map<std::string, std::string> {
        { "image.png", png }, { "image 1.png", png }, { "cross.png", crossPNG }, { "image 2.png", crossPNG } }));

    // Failures: a missing image, a redirect out of http, a body too large, a
    // scheme that is neither. Nothing is written.
    server.handle("/files/to-file", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_redirect(message, 302, "file:///etc/passwd");
    });
    server.handle("/files/huge.png", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_status(message, 200, nullptr);
        std::string body(NativeImageFetch::kMaxBytes + 1, 'x');
        soup_server_message_set_response(message, "image/png", SOUP_MEMORY_COPY, body.data(), body.size());
    });
    EXPECT_EQ(saveAndWait(view, server.uriOnHost("localhost", "/files/missing.png")), "");
    EXPECT_EQ(saveAndWait(view, server.uriOnHost("localhost", "/files/to-file")), "");
    EXPECT_EQ(saveAndWait(view, server.uriOnHost("localhost", "/files/huge.png")), "");
    EXPECT_EQ(saveAndWait(view, "ftp://localhost/x.png"), "");
    EXPECT_EQ(filesIn(downloads).size(), 4u);
}

TEST_F(SaveImageWebTest, RightClickTargetsRetargetWebKitsOwnItemsInPlace) {
    useServices("/files/page.html");
    Account account;
    WebKitWebView* view = openAccount(account);
    SaveImageWebView* saving = SaveImageWebView::of(view);
    ASSERT_TRUE(saving);
    auto menuLike = [] {
        WebKitContextMenu* menu = webkit_context_menu_new();
        for (auto action : { WEBKIT_CONTEXT_MENU_ACTION_OPEN_LINK, WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_LINK_TO_DISK,
                 WEBKIT_CONTEXT_MENU_ACTION_COPY_LINK_TO_CLIPBOARD, WEBKIT_CONTEXT_MENU_ACTION_OPEN_IMAGE_IN_NEW_WINDOW,
                 WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_IMAGE_TO_DISK, WEBKIT_CONTEXT_MENU_ACTION_COPY_IMAGE_TO_CLIPBOARD,
                 WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_IMAGE_TO_DISK })
            webkit_context_menu_append(menu, webkit_context_menu_item_new_from_stock_action(action));
        return menu;
    };

    // A right-click on a linked image reports both addresses to this view.
    ASSERT_TRUE(runJS(view, "__fixture.contextMenuOn('linked')").ok);
    ASSERT_TRUE(waitUntil([&] { return saving->capturer().src().has_value(); }));
    EXPECT_EQ(saving->capturer().src().value_or(""), server.uri("/files/pixel.png"));
    EXPECT_EQ(saving->capturer().linkSrc().value_or(""), server.uri("/files/attachment.pdf"));

    WebKitContextMenu* menu = menuLike();
    saving->retarget(menu);
    using M = MenuItem;
    EXPECT_EQ(itemsOf(menu), (std::vector<MenuItem> {
        M { WEBKIT_CONTEXT_MENU_ACTION_OPEN_LINK, {}, {} },
        M { WEBKIT_CONTEXT_MENU_ACTION_CUSTOM, "orvane-download-linked-file", {} },
        M { WEBKIT_CONTEXT_MENU_ACTION_COPY_LINK_TO_CLIPBOARD, {}, {} },
        M { WEBKIT_CONTEXT_MENU_ACTION_OPEN_IMAGE_IN_NEW_WINDOW, {}, {} },
        M { WEBKIT_CONTEXT_MENU_ACTION_CUSTOM, "orvane-save-image", {} },
        M { WEBKIT_CONTEXT_MENU_ACTION_COPY_IMAGE_TO_CLIPBOARD, {}, {} },
        M { WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_IMAGE_TO_DISK, {}, {} }, // only the first is changed
    }));
    // A menu without a report of its own (a right-click in a frame of another
    // site, whose report is refused) keeps WebKit's items.
    WebKitContextMenu* unreported = menuLike();
    saving->retarget(unreported);
    for (const MenuItem& item : itemsOf(unreported))
        EXPECT_NE(item.stock, WEBKIT_CONTEXT_MENU_ACTION_CUSTOM);
    g_object_unref(unreported);
    // The image item carries its address: activating it saves that image,
    // even after a later right-click elsewhere.
    auto* imageItem = WEBKIT_CONTEXT_MENU_ITEM(g_list_nth_data(webkit_context_menu_get_items(menu), 4));
    GAction* imageAction = webkit_context_menu_item_get_gaction(imageItem);
    ASSERT_TRUE(runJS(view, "__fixture.contextMenuOn('text')").ok);
    ASSERT_TRUE(waitUntil([&] { return !saving->capturer().src().has_value(); }));
    EXPECT_FALSE(saving->capturer().linkSrc());
    g_action_activate(imageAction, g_variant_new_string(server.uri("/files/pixel.png").c_str()));
    ASSERT_TRUE(waitUntil([&] { return filesIn(downloads).contains("image.png"); }, 20s));
    EXPECT_EQ(filesIn(downloads)["image.png"], png);
    g_object_unref(menu);

    // Plain text: nothing to re-target.
    menu = menuLike();
    saving->retarget(menu);
    for (const MenuItem& item : itemsOf(menu))
        EXPECT_NE(item.stock, WEBKIT_CONTEXT_MENU_ACTION_CUSTOM);
    g_object_unref(menu);

    // The link item starts a regular download that lands in Downloads.
    server.handle("/files/attachment.pdf", [](SoupServerMessage* message, const std::string&) {
        soup_server_message_set_status(message, 200, nullptr);
        soup_message_headers_append(soup_server_message_get_response_headers(message), "Content-Disposition",
            "attachment; filename=report.pdf");
        soup_server_message_set_response(message, "application/pdf", SOUP_MEMORY_STATIC, "%PDF", 4);
    });
    saving->downloadLinkedFile(server.uri("/files/attachment.pdf"));
    ASSERT_TRUE(waitUntil([&] { return filesIn(downloads)["report.pdf"] == "%PDF"; }, 20s));
}

TEST_F(SaveImageWebTest, ARealRightClickShowsTheSameMenuWithOrvanesActions) {
    useServices("/files/page.html");
    Account account;
    WebKitWebView* view = openAccount(account);
    if (!canSendXInput(GTK_WIDGET(view)))
        FAIL() << "needs X11 and xdotool (tools/setup.sh installs them)";
    XInputLock lock;
    ASSERT_TRUE(lock.held());
    SaveImageWebView* saving = SaveImageWebView::of(view);
    auto rect = runJS(view, "(() => { const r = document.getElementById('linked').getBoundingClientRect();"
                            " return [r.left + r.width / 2, r.top + r.height / 2]; })()");
    ASSERT_TRUE(rect.ok);
    double x = rect.value[0].get<double>();
    double y = rect.value[1].get<double>();

    auto rightClick = [&]() -> std::vector<ShownItem> {
        if (!pointerAt(GTK_WIDGET(view), { "click", "3" }, x, y))
            return {};
        GtkPopoverMenu* popover = nullptr;
        waitUntil([&] { return (popover = shownMenu(GTK_WIDGET(view))) != nullptr; });
        std::vector<ShownItem> items;
        if (popover)
            collectShown(gtk_popover_menu_get_menu_model(popover), items);
        return items;
    };
    auto labels = [](const std::vector<ShownItem>& items) {
        std::vector<std::string> list;
        for (const auto& item : items)
            list.push_back(item.label);
        return list;
    };

    std::vector<ShownItem> retargeted = rightClick();
    ASSERT_FALSE(retargeted.empty());
    EXPECT_EQ(saving->capturer().src().value_or(""), server.uri("/files/pixel.png"));
    GtkPopoverMenu* popover = shownMenu(GTK_WIDGET(view));
    ASSERT_TRUE(popover);
    // Orvane's two items carry the addresses, under WebKit's own labels.
    const ShownItem* image = nullptr;
    const ShownItem* link = nullptr;
    for (const auto& item : retargeted) {
        if (item.action.find("orvane-save-image") != std::string::npos)
            image = &item;
        if (item.action.find("orvane-download-linked-file") != std::string::npos)
            link = &item;
    }
    ASSERT_TRUE(image && link);
    EXPECT_EQ(image->label, SaveImageWebView::imageItemLabel());
    EXPECT_EQ(image->target, server.uri("/files/pixel.png"));
    EXPECT_EQ(link->label, SaveImageWebView::linkItemLabel());
    EXPECT_EQ(link->target, server.uri("/files/attachment.pdf"));
    // Choosing the image item in the menu saves the image.
    GVariant* target = g_variant_new_string(image->target.c_str());
    EXPECT_TRUE(gtk_widget_activate_action_variant(GTK_WIDGET(popover), image->action.c_str(), target));
    ASSERT_TRUE(waitUntil([&] { return filesIn(downloads).contains("image.png"); }, 20s));
    gtk_popover_popdown(GTK_POPOVER(popover));
    ASSERT_TRUE(waitUntil([&] { return !shownMenu(GTK_WIDGET(view)); }));

    // WebKit's own menu for the same spot: the same labels in the same order.
    g_signal_handlers_block_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, saving);
    std::vector<ShownItem> stock = rightClick();
    g_signal_handlers_unblock_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, saving);
    if (GtkPopoverMenu* open = shownMenu(GTK_WIDGET(view)))
        gtk_popover_popdown(GTK_POPOVER(open));
    EXPECT_EQ(labels(stock), labels(retargeted));
    for (const auto& item : stock)
        EXPECT_EQ(item.action.find("orvane"), std::string::npos) << item.action;
}

} // namespace
} // namespace orvane::test
