// The preferences window: every control writes accounts.json at once, the
// sending-account choice follows its shown-selection rule, and the default
// email app row follows the desktop's mimeapps.list.
#include "SettingsView.h"

#include "AppPaths.h"
#include "WidgetPixels.h"
#include "XInput.h"
#include "Files.h"
#include "DefaultMailClient.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"
#include "WebViewManager.h"

#include <adwaita.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace orvane;
using namespace orvane::test;

namespace {

class SettingsViewTest : public testing::Test {
protected:
    void SetUp() override {
        adw_init();
        freshXDGFolders();
        store = std::make_unique<AccountStore>();
        manager = std::make_unique<WebViewManager>();
        manager->configure(*store);
        // GIO reads the user folders once per process: the registry lives
        // in the folders it read.
        applications = std::string(g_get_user_data_dir()) + "/applications";
        g_mkdir_with_parents(applications.c_str(), 0700);
        g_mkdir_with_parents(g_get_user_config_dir(), 0700);
        removeRegistry();
    }

    void TearDown() override {
        close();
        manager.reset();
        store.reset();
        removeRegistry();
        drainEvents();
    }

    void open() {
        view = &SettingsView::open(*store, *manager, nullptr);
        GtkWidget* window = GTK_WIDGET(view->window());
        waitUntil([&] { return gtk_widget_get_mapped(window) && gtk_widget_get_width(view->dockSwitch()) > 0; });
    }
    void close() {
        if (view)
            gtk_window_destroy(view->window());
        view = nullptr;
        drainEvents();
    }

    void removeRegistry() {
        g_remove((applications + "/app.orvane.Orvane.desktop").c_str());
        g_remove((applications + "/other-mail.desktop").c_str());
        g_remove(mimeapps().c_str());
        waitUntil([] { return !DefaultMailClient::isDefault(); }, 5s);
    }
    static std::string mimeapps() { return std::string(g_get_user_config_dir()) + "/mimeapps.list"; }
    void installDesktopFile(const std::string& name) {
        ASSERT_TRUE(Files::replaceAtomically(applications + "/" + name,
            "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true %U\nMimeType=x-scheme-handler/mailto;\n"));
    }
    static void setDefaultInFile(const std::string& desktopID) {
        ASSERT_TRUE(Files::replaceAtomically(mimeapps(), "[Default Applications]\nx-scheme-handler/mailto=" + desktopID + "\n"));
    }

    static nlohmann::json saved() {
        auto bytes = Files::read(AppPaths::accountsFile(), 1 << 20);
        return bytes ? nlohmann::json::parse(*bytes, nullptr, false) : nlohmann::json();
    }
    static bool visible(GtkWidget* widget) { return gtk_widget_get_visible(widget); }

    Account addMail(const std::string& label) {
        Account account = store->addAccount();
        account.label = label;
        store->update(account);
        return account;
    }

    std::string shownAccount() const {
        const char* label = gtk_menu_button_get_label(GTK_MENU_BUTTON(view->defaultAccountButton()));
        return label ? label : "";
    }
    // The menu's item labels, in order.
    std::vector<std::string> choices() const {
        std::vector<std::string> labels;
        GMenuModel* menu = gtk_menu_button_get_menu_model(GTK_MENU_BUTTON(view->defaultAccountButton()));
        for (int i = 0; menu && i < g_menu_model_get_n_items(menu); ++i) {
            char* label = nullptr;
            g_menu_model_get_item_attribute(menu, i, G_MENU_ATTRIBUTE_LABEL, "s", &label);
            labels.push_back(label ? label : "");
            g_free(label);
        }
        return labels;
    }
    // The pop-up menu's item showing `text`.
    static GtkWidget* menuItem(GtkWidget* widget, const std::string& text) {
        for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
            if (g_object_class_find_property(G_OBJECT_GET_CLASS(child), "text")) {
                char* value = nullptr;
                g_object_get(child, "text", &value, nullptr);
                bool found = value && text == value;
                g_free(value);
                if (found)
                    return child;
            }
            if (GtkWidget* found = menuItem(child, text))
                return found;
        }
        return nullptr;
    }

    void clickSwitch(GtkWidget* toggle) { ASSERT_TRUE(pointerAt(toggle, { "click", "1" })); }

    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    SettingsView* view = nullptr;
    std::string applications;
};

TEST_F(SettingsViewTest, SwitchesShowTheStoreAndSaveEveryChange) {
    store->setShowDockBadge(true);
    store->save();
    open();
    EXPECT_TRUE(gtk_switch_get_active(GTK_SWITCH(view->alwaysAskSwitch())));
    EXPECT_FALSE(gtk_switch_get_active(GTK_SWITCH(view->notificationsSwitch())));
    EXPECT_TRUE(gtk_switch_get_active(GTK_SWITCH(view->dockSwitch())));
    if (!canSendXInput(view->dockSwitch()))
        FAIL() << "needs X11 and xdotool (tools/setup.sh installs them)";

    clickSwitch(view->alwaysAskSwitch());
    EXPECT_TRUE(waitUntil([&] { return saved().value("alwaysAskOnMailto", true) == false; }));
    EXPECT_FALSE(store->alwaysAskOnMailto());

    clickSwitch(view->notificationsSwitch());
    EXPECT_TRUE(waitUntil([&] { return saved().value("notificationsEnabled", false) == true; }));

    clickSwitch(view->dockSwitch());
    EXPECT_TRUE(waitUntil([&] { return saved().value("showDockBadge", true) == false; }));
    EXPECT_FALSE(store->showDockBadge());

    // A change made elsewhere shows in the open window, and saves nothing.
    g_remove(AppPaths::accountsFile().c_str());
    store->setNotificationsEnabled(false);
    EXPECT_FALSE(gtk_switch_get_active(GTK_SWITCH(view->notificationsSwitch())));
    drainEvents();
    EXPECT_FALSE(Files::exists(AppPaths::accountsFile()));
}

TEST_F(SettingsViewTest, SendingAccountShowsDefaultOrFirstAndStoresAChoice) {
    // No mail account: disabled, nothing shown.
    Account calendarOf = store->addAccount();
    store->addCalendar(calendarOf);
    store->remove(calendarOf);
    open();
    EXPECT_FALSE(gtk_widget_get_sensitive(view->defaultAccountRow()));
    EXPECT_EQ(shownAccount(), "");

    // One mail account, no default: shown, not stored.
    Account home = addMail("home_office@example.com");
    EXPECT_TRUE(gtk_widget_get_sensitive(view->defaultAccountRow()));
    EXPECT_EQ(shownAccount(), "home_office@example.com");
    EXPECT_EQ(choices(), std::vector<std::string>({ "home__office@example.com" }));
    EXPECT_FALSE(store->defaultMailtoAccountID());
    EXPECT_FALSE(saved().contains("defaultMailtoAccountID"));

    // Choosing the account already shown stores it.
    if (canSendXInput(view->defaultAccountButton())) {
        ASSERT_TRUE(pointerAt(view->defaultAccountButton(), { "click", "1" }));
        GtkPopover* popover = gtk_menu_button_get_popover(GTK_MENU_BUTTON(view->defaultAccountButton()));
        ASSERT_TRUE(waitUntil([&] { return popover && gtk_widget_get_mapped(GTK_WIDGET(popover)); }));
        GtkWidget* item = menuItem(GTK_WIDGET(popover), "home_office@example.com");
        ASSERT_TRUE(item);
        ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(item) && gtk_widget_get_height(item) > 0; }));
        ASSERT_TRUE(pointerAt(item, { "click", "1" }));
        EXPECT_TRUE(waitUntil([&] { return saved().value("defaultMailtoAccountID", "") == home.id; }));
        EXPECT_TRUE(waitUntil([&] { return !gtk_widget_get_mapped(GTK_WIDGET(popover)); }));
    } else {
        gtk_widget_activate_action(view->defaultAccountButton(), "settings.default-account", "s", home.id.c_str());
        EXPECT_EQ(saved().value("defaultMailtoAccountID", ""), home.id);
    }

    // A second account; the stored default stays shown, a choice is saved.
    Account work = addMail("work@example.com");
    EXPECT_EQ(shownAccount(), "home_office@example.com");
    gtk_widget_activate_action(view->defaultAccountButton(), "settings.default-account", "s", work.id.c_str());
    EXPECT_EQ(store->defaultMailtoAccountID(), work.id);
    EXPECT_EQ(saved().value("defaultMailtoAccountID", ""), work.id);
    EXPECT_EQ(shownAccount(), "work@example.com");
    // Ids that are not offered are refused.
    Account calendar = store->addCalendar(work);
    gtk_widget_activate_action(view->defaultAccountButton(), "settings.default-account", "s", calendar.id.c_str());
    EXPECT_EQ(store->defaultMailtoAccountID(), work.id);
    // A stored default that names no account shows nothing.
    store->setDefaultMailtoAccountID("00000000-0000-4000-8000-000000000000");
    EXPECT_EQ(shownAccount(), "");
}

TEST_F(SettingsViewTest, DefaultAppRowFollowsTheDesktopAndExplainsAFailedRequest) {
    installDesktopFile("other-mail.desktop");
    setDefaultInFile("other-mail.desktop");
    open();
    EXPECT_FALSE(view->isDefaultMailClient());
    EXPECT_TRUE(visible(view->makeDefaultButton()));
    EXPECT_FALSE(visible(view->isDefaultLabel()));
    EXPECT_FALSE(visible(view->failureRow()));

    // Orvane's desktop file is not installed: the desktop cannot take it.
    gtk_widget_activate(view->makeDefaultButton());
    EXPECT_TRUE(waitUntil([&] { return view->triedAndFailed(); }));
    EXPECT_TRUE(visible(view->failureRow()));
    EXPECT_TRUE(visible(view->makeDefaultButton()));
    GtkWidget* explanation = gtk_list_box_row_get_child(GTK_LIST_BOX_ROW(view->failureRow()));
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(explanation)), SettingsView::kFailureText);
    EXPECT_NE(std::string(SettingsView::kFailureText).find("tools/set-default-mail.sh"), std::string::npos);
    if (const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR")) {
        drainEvents();
        if (Rendering failed = renderWidget(GTK_WIDGET(view->window())))
            failed.saveTo(std::string(keep) + "/settings-failed.png");
    }

    // Installed, a press works and the explanation goes.
    installDesktopFile("app.orvane.Orvane.desktop");
    gtk_widget_activate(view->makeDefaultButton());
    EXPECT_TRUE(waitUntil([&] { return view->isDefaultMailClient(); }));
    EXPECT_FALSE(view->triedAndFailed());
    EXPECT_FALSE(visible(view->failureRow()));
    EXPECT_TRUE(visible(view->isDefaultLabel()));
    EXPECT_FALSE(visible(view->makeDefaultButton()));
    Rendering shot = renderWidget(GTK_WIDGET(view->window()));
    if (const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR"); keep && shot)
        shot.saveTo(std::string(keep) + "/settings-default.png");

    // Changed back outside Orvane: the next time the window is shown, it asks.
    setDefaultInFile("other-mail.desktop");
    ASSERT_TRUE(waitUntil([] { return !DefaultMailClient::isDefault(); }, 5s));
    EXPECT_TRUE(view->isDefaultMailClient());
    close();
    open();
    EXPECT_FALSE(view->isDefaultMailClient());
    EXPECT_TRUE(visible(view->makeDefaultButton()));
    EXPECT_FALSE(visible(view->failureRow()));
}

} // namespace
