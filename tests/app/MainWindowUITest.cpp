// The main window: its content (the empty state, one web view per account
// with only the selected one shown, the sender picker on the layer above),
// its search bar and its removal toast. Which account the picker offers and
// highlights is MailtoRouterTest's; real keys on the picker and on the search
// bar through the real binary are MailtoTest's and PageKeysTest's; the
// store's removal rules are AccountStoreTest's.
#include "MainWindow.h"

#include "AccountPickerView.h"
#include "AppPaths.h"
#include "AvatarView.h"
#include "ContentView.h"
#include "Files.h"
#include "PageTools.h"
#include "RemovalToast.h"
#include "SenderChoice.h"
#include "WidgetTest.h"
#include "XInput.h"

#include <set>

namespace orvane::test {
namespace {

constexpr const char* kNoAccount = "00000000-0000-4000-8000-000000000000";

using MainWindowTest = WidgetTest;

TEST_F(MainWindowTest, EachAccountHasItsOwnViewOnlyTheSelectedShownAndMailLinksWaitOnThePickersCard) {
    auto viewOf = [&](const Account& account) { return GTK_WIDGET(manager->webView(account.id)); };
    auto text = [](GtkWidget* label) { return std::string(gtk_label_get_text(GTK_LABEL(label))); };
    static int reparented = 0; // the views outlive this body
    auto content = std::make_unique<ContentView>(*store, *manager);
    present(content->widget(), 900, 600);
    content->refresh();
    EXPECT_TRUE(content->showsEmptyState());
    EXPECT_EQ(gtk_window_get_default_widget(window), content->addAccountButton());
    // What Return does:
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(window), "default.activate", nullptr));
    ASSERT_TRUE(waitUntil([&] { return store->accounts().size() == 1; }));
    const Account gmail = store->accounts().front();
    EXPECT_EQ(gmail.service.value_or(AccountService::Mail), AccountService::Mail);
    EXPECT_EQ(gtk_window_get_default_widget(window), nullptr) << "Return belongs to the page now";

    const Account outlook = addAccount("Work Outlook with a rather long name", AccountService::Outlook);
    const Account calendar = store->addCalendar(gmail); // shares the Gmail account's session, not its view
    GtkWidget* area = gtk_widget_get_parent(viewOf(gmail));
    const std::set<GtkWidget*> views { viewOf(gmail), viewOf(outlook), viewOf(calendar) };
    for (GtkWidget* view : views) {
        EXPECT_EQ(gtk_widget_get_parent(view), area);
        g_signal_connect_swapped(view, "notify::parent", G_CALLBACK(+[](int* n) { ++*n; }), &reparented);
    }
    for (int index : { 0, 1, 2, 0, 1, 2 }) {
        store->select(index);
        GtkWidget* selected = viewOf(store->accounts()[size_t(index)]);
        EXPECT_EQ(content->visibleWebView(), selected);
        for (GtkWidget* view : views)
            EXPECT_EQ(gtk_widget_get_child_visible(view), view == selected);
    }
    EXPECT_EQ(reparented, 0);
    store->setSelectedAccountID(std::string(kNoAccount));
    EXPECT_EQ(content->visibleWebView(), nullptr) << "a selection that names no account shows nothing";

    // A mail link shows the picker's card above the page.
    std::vector<Account> mail { gmail, outlook };
    store->setSelectedAccountID(outlook.id);
    AccountPickerView& picker = content->picker();
    content->handleOpenURL("mailto:ana@example.com,tom@example.com?subject=Hi");
    ASSERT_TRUE(waitUntil([&] { return gtk_revealer_get_child_revealed(GTK_REVEALER(picker.widget())); }));
    EXPECT_EQ(text(picker.recipientLabel()), "To: ana@example.com, tom@example.com");

    // A digit beyond the offered accounts, and one with Ctrl, are not the
    // picker's; nor is a real click on the card itself.
    EXPECT_FALSE(picker.handleKey(GDK_KEY_3, GdkModifierType(0)));
    EXPECT_FALSE(picker.handleKey(GDK_KEY_2, GDK_CONTROL_MASK));
    ASSERT_TRUE(canSendXInput(content->widget())) << "needs X11 and xdotool (tools/setup.sh installs them)";
    ASSERT_TRUE(pointerAt(picker.card(), { "click", "1" }, 6, 6));
    EXPECT_TRUE(content->pendingMailto());
    EXPECT_EQ(store->selectedAccountID(), outlook.id);

    // Accounts added meanwhile show, up to nine, each tile with its number.
    for (int i = 3; i <= 10; ++i)
        mail.push_back(addAccount("account " + std::to_string(i)));
    // Each new account brings a web view of its own first.
    ASSERT_TRUE(waitUntil([&] { return picker.accountButtons().size() == 9; }, 30s));
    EXPECT_EQ(text(picker.hintLabel()), SenderChoice::hint(9));
    auto buttons = picker.accountButtons();
    for (size_t i = 0; i < buttons.size(); ++i) {
        auto* tile = ORVANE_AVATAR_VIEW(AccountPickerView::tileOf(buttons[i]));
        EXPECT_EQ(orvane_avatar_view_get_account(tile).id, mail[i].id);
        EXPECT_EQ(bool(orvane_avatar_view_get_selected(tile)), i == 0);
        EXPECT_EQ(text(gtk_widget_get_next_sibling(GTK_WIDGET(tile))), std::to_string(i + 1));
        EXPECT_EQ(accessibleMismatch(buttons[i], GTK_ACCESSIBLE_PROPERTY_LABEL, mail[i].label.c_str()), "");
    }

    // A megabyte of recipients makes a short line, cut in the middle.
    std::string many;
    while (many.size() < 1024 * 1024)
        many += "someone" + std::to_string(many.size()) + "@example.com,";
    content->handleOpenURL("mailto:" + many + "last@example.com");
    std::string line = text(picker.recipientLabel());
    EXPECT_LE(g_utf8_strlen(line.c_str(), -1), AccountPickerView::kMaxRecipientChars + 1);
    EXPECT_EQ(line.rfind("To: someone0@example.com, ", 0), 0u);
    EXPECT_TRUE(g_str_has_suffix(line.c_str(), "last@example.com"));

    // A button picks its account; once gone, the layer takes no clicks.
    gtk_widget_activate(picker.accountButtons()[2]);
    EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == mail[2].id; }));
    EXPECT_TRUE(waitUntil([&] { return !gtk_widget_get_visible(picker.widget()); }));
    GtkWidget* picked = gtk_widget_pick(content->widget(), 15, 15, GTK_PICK_DEFAULT);
    EXPECT_FALSE(picked && gtk_widget_is_ancestor(picked, picker.widget()));

    // A default that names no account: Return does nothing, the picker stays.
    store->setDefaultMailtoAccountID(kNoAccount);
    content->handleOpenURL("mailto:a@example.com");
    EXPECT_TRUE(picker.handleKey(GDK_KEY_Return, GdkModifierType(0)));
    EXPECT_TRUE(content->pendingMailto());
    EXPECT_TRUE(picker.handleKey(GDK_KEY_1, GdkModifierType(0)));
    EXPECT_EQ(store->selectedAccountID(), mail[0].id);

    // The views of accounts that are gone (kept by the manager here) leave
    // the area, and with none the empty state and its default button come
    // back. Which account is selected after a removal is AccountStoreTest's.
    for (const Account& account : std::vector(store->accounts()))
        store->remove(account);
    for (GtkWidget* view : views)
        EXPECT_EQ(gtk_widget_get_parent(view), nullptr);
    EXPECT_TRUE(content->showsEmptyState());
    EXPECT_EQ(gtk_window_get_default_widget(window), content->addAccountButton());
}

TEST_F(MainWindowTest, SearchCountsThePagesMatchesAndTheRemovalToastUndoesUntilItGoes) {
    const Account work = addAccount("Work & <Home>"), other = addAccount("Other");
    Preferences preferences;
    SessionPreferences session(preferences);
    auto main = std::make_unique<MainWindow>(nullptr, *store, *manager, nullptr);
    auto tools = std::make_unique<PageTools>(*main, *store, *manager, session);
    gtk_window_present(main->window());

    // The search bar counts the selected page's matches as one types,
    // whatever their case, and marks the entry when there are none.
    auto* page = WEBKIT_WEB_VIEW(main->content().visibleWebView());
    const std::string uri = "http://127.0.0.1/";
    webkit_web_view_load_html(page, "<p>hay needle hay NEEDLE haystack</p>", uri.c_str());
    auto loaded = [&] { return !webkit_web_view_is_loading(page) && webkit_web_view_get_uri(page) == uri; };
    ASSERT_TRUE(waitUntil(loaded));
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(main->window()), "page.find", nullptr));
    const std::pair<const char*, std::string> cases[] = { { "needle", "2 matches" },
        { "needle haystack", "1 match" }, { "thread", "No matches" }, { "", "" } };
    for (auto [text, count] : cases) {
        gtk_editable_set_text(GTK_EDITABLE(tools->searchEntry()), text);
        GtkLabel* label = GTK_LABEL(tools->matchLabel());
        EXPECT_TRUE(waitUntil([&] { return gtk_label_get_text(label) == count; })) << text;
        EXPECT_EQ(gtk_widget_has_css_class(tools->searchEntry(), "error"), count == "No matches") << text;
    }

    // The toast names what it removed; its Undo brings the accounts back,
    // signed in as before.
    auto remove = [&](const Account& account) {
        GtkWidget* tile
            = findWidget(GTK_WIDGET(main->window()), [](GtkWidget* w) { return ORVANE_IS_AVATAR_VIEW(w); });
        return gtk_widget_activate_action(tile, "sidebar.remove", "s", account.id.c_str());
    };
    WebKitNetworkSession* signedIn = manager->networkSession(work.dataStoreID);
    const std::vector<Account> before = store->accounts();
    ASSERT_TRUE(remove(work));
    EXPECT_STREQ(adw_toast_get_title(main->removals().toast()), "“Work &amp; &lt;Home&gt;” removed");
    ASSERT_TRUE(remove(other));
    EXPECT_STREQ(adw_toast_get_title(main->removals().toast()), "2 accounts removed");
    gtk_widget_activate(findWidget(GTK_WIDGET(main->window()), [](GtkWidget* w) {
        return GTK_IS_BUTTON(w) && g_strcmp0(gtk_button_get_label(GTK_BUTTON(w)), "_Undo") == 0;
    }));
    EXPECT_TRUE(waitUntil([&] {
        return store->accounts() == before && manager->webView(work.id) && !main->removals().toast();
    }));
    EXPECT_EQ(manager->networkSession(work.dataStoreID), signedIn);

    // Closed, the toast commits, and so does the window's end.
    const std::string workData = AppPaths::websiteDataDir(work.dataStoreID);
    const std::string otherData = AppPaths::websiteDataDir(other.dataStoreID);
    ASSERT_TRUE(remove(work));
    adw_toast_dismiss(main->removals().toast());
    ASSERT_TRUE(remove(other));
    EXPECT_TRUE(!Files::exists(workData) && Files::exists(otherData));
    tools.reset();
    main.reset();
    EXPECT_FALSE(Files::exists(otherData));
}

} // namespace
} // namespace orvane::test
