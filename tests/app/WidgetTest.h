#pragma once

// The widget tests' shared fixture: a fresh AccountStore and WebViewManager in
// fresh XDG folders, with the service pages sent nowhere, and one window.

#include "AccountStore.h"
#include "WebViewManager.h"
#include "support/TestEnvironment.h"
#include "support/TestServices.h"
#include "support/TestWebHost.h"
#include "support/Wait.h"

#include <adwaita.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace orvane::test {

using Strings = std::vector<std::string>;

// A menu's items as "label→action", or "label→action(target)" with their
// text targets, and "—" opening each section.
inline Strings menuItems(GMenuModel* model, bool withTargets = false) {
    Strings items;
    for (int i = 0; model && i < g_menu_model_get_n_items(model); ++i) {
        if (auto section = adopt(g_menu_model_get_item_link(model, i, G_MENU_LINK_SECTION))) {
            items.push_back("—");
            std::ranges::copy(menuItems(section.get(), withTargets), std::back_inserter(items));
            continue;
        }
        char *label = nullptr, *action = nullptr, *target = nullptr;
        g_menu_model_get_item_attribute(model, i, G_MENU_ATTRIBUTE_LABEL, "s", &label);
        g_menu_model_get_item_attribute(model, i, G_MENU_ATTRIBUTE_ACTION, "s", &action);
        g_menu_model_get_item_attribute(model, i, G_MENU_ATTRIBUTE_TARGET, "s", &target);
        GCharPtr ownedLabel(label), ownedAction(action), ownedTarget(target);
        std::string item = std::string(label ? label : "") + "→" + (action ? action : "");
        items.push_back(withTargets && target ? item + "(" + target + ")" : item);
    }
    return items;
}

// The first widget under `root`, depth first, that matches.
inline GtkWidget* findWidget(GtkWidget* root, const std::function<bool(GtkWidget*)>& match) {
    for (GtkWidget* c = gtk_widget_get_first_child(root); c; c = gtk_widget_get_next_sibling(c))
        if (GtkWidget* found = match(c) ? c : findWidget(c, match))
            return found;
    return nullptr;
}

// What GTK tells screen readers of the widget's property, when it is not
// `expected`; "" when it is.
inline std::string accessibleMismatch(
    GtkWidget* widget, GtkAccessibleProperty property, const char* expected) {
    GCharPtr actual(gtk_test_accessible_check_property(GTK_ACCESSIBLE(widget), property, expected));
    return actual ? actual.get() : "";
}

class WidgetTest : public ::testing::Test {
protected:
    void SetUp() override {
        adw_init();
        freshXDGFolders();
        sendServicesNowhere();
        store = std::make_unique<AccountStore>();
        manager = std::make_unique<WebViewManager>(host, testServices());
        manager->configure(*store);
    }
    // After a derived fixture's members, its views of the store, are gone.
    ~WidgetTest() override {
        if (window)
            gtk_window_destroy(window);
        manager.reset();
        store.reset();
        drainEvents();
    }

    // Shows `child` in an undecorated window and waits until it is laid out.
    void present(GtkWidget* child, int width = -1, int height = -1) {
        window = GTK_WINDOW(g_object_new(GTK_TYPE_WINDOW, "decorated", FALSE, "default-width", width,
            "default-height", height, "child", child, nullptr));
        gtk_window_present(window);
        ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(child) && gtk_widget_get_width(child); }));
    }

    Account addAccount(const std::string& label, std::optional<AccountService> service = std::nullopt) {
        Account account
            = service == AccountService::Outlook ? store->addOutlookAccount() : store->addAccount();
        account.label = label;
        store->update(account);
        return account;
    }

    TestWebHost host;
    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    GtkWindow* window = nullptr; // owned
};

} // namespace orvane::test
