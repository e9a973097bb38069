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

#include <memory>
#include <string>

namespace orvane::test {

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
    // A derived fixture lets go of its views of the store first.
    void TearDown() override {
        if (window)
            gtk_window_destroy(window);
        manager.reset();
        store.reset();
        drainEvents();
    }

    // Shows `child` in an undecorated window and waits until it is laid out.
    void present(GtkWidget* child, int width = -1, int height = -1) {
        window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_decorated(window, FALSE);
        gtk_window_set_default_size(window, width, height);
        gtk_window_set_child(window, child);
        gtk_window_present(window);
        ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(child) && gtk_widget_get_width(child) > 0; }));
    }

    Account addAccount(const std::string& label, std::optional<AccountService> service = std::nullopt) {
        Account account = service == AccountService::Outlook ? store->addOutlookAccount() : store->addAccount();
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
