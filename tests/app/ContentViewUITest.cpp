// The main window's content: the empty state, one web view per account with
// only the selected one shown, and the sender picker on the layer above.
// Which account the picker offers and highlights is SenderChoiceTest's; real
// keys and clicks on it through the real binary are MailtoTest's.
#include "ContentView.h"

#include "AccountPickerView.h"
#include "AvatarView.h"
#include "SenderChoice.h"
#include "WidgetTest.h"
#include "XInput.h"

#include <set>

namespace orvane::test {
namespace {

class ContentViewTest : public WidgetTest {
protected:
    void show() {
        content = std::make_unique<ContentView>(*store, *manager);
        present(content->widget(), 900, 600);
        content->refresh();
    }
    void TearDown() override {
        content.reset();
        WidgetTest::TearDown();
    }
    GtkWidget* viewOf(const Account& account) { return GTK_WIDGET(manager->webView(account.id)); }
    // The web views in the web area.
    std::set<GtkWidget*> webAreaViews() {
        std::set<GtkWidget*> views;
        for (const Account& account : store->accounts())
            for (GtkWidget* c = viewOf(account) ? gtk_widget_get_first_child(gtk_widget_get_parent(viewOf(account))) : nullptr; c;
                 c = gtk_widget_get_next_sibling(c))
                if (WEBKIT_IS_WEB_VIEW(c))
                    views.insert(c);
        return views;
    }

    std::unique_ptr<ContentView> content;
    int reparented = 0; // outlives the views
};

TEST_F(ContentViewTest, EmptyStateButtonIsTheDefaultUntilThereIsAnAccount) {
    show();
    EXPECT_TRUE(content->showsEmptyState());
    EXPECT_EQ(gtk_window_get_default_widget(window), content->addAccountButton());
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(window), "default.activate", nullptr)); // what Return does
    ASSERT_TRUE(waitUntil([&] { return store->accounts().size() == 1; }));
    const Account account = store->accounts().front();
    EXPECT_EQ(content->visibleWebView(), viewOf(account));
    EXPECT_EQ(gtk_window_get_default_widget(window), nullptr) << "Return belongs to the page now";

    manager->discard(account);
    store->remove(account);
    EXPECT_TRUE(content->showsEmptyState());
    EXPECT_EQ(gtk_window_get_default_widget(window), content->addAccountButton());
    EXPECT_TRUE(webAreaViews().empty());
}

TEST_F(ContentViewTest, EveryAccountHasItsOwnViewAddedOnceAndOnlyTheSelectedIsShown) {
    const Account gmail = store->addAccount();
    const Account outlook = store->addOutlookAccount();
    const Account calendar = store->addCalendar(gmail); // shares the Gmail account's session, not its view
    show();
    std::set<GtkWidget*> views { viewOf(gmail), viewOf(outlook), viewOf(calendar) };
    ASSERT_EQ(views.size(), 3u);
    EXPECT_EQ(webAreaViews(), views);
    for (GtkWidget* view : views)
        g_signal_connect_swapped(view, "notify::parent", G_CALLBACK(+[](int* count) { ++*count; }), &reparented);
    for (int index : { 0, 1, 2, 0, 1, 2 }) {
        store->select(index);
        GtkWidget* selected = viewOf(store->accounts()[size_t(index)]);
        EXPECT_EQ(content->visibleWebView(), selected);
        for (GtkWidget* view : views)
            EXPECT_EQ(gtk_widget_get_child_visible(view), view == selected);
    }
    EXPECT_EQ(reparented, 0);
    store->setSelectedAccountID(std::string("00000000-0000-4000-8000-000000000000"));
    EXPECT_EQ(content->visibleWebView(), nullptr) << "a selection that names no account shows nothing";

    // Removing the selected account shows the first remaining one.
    store->select(1);
    auto removedView = Ref<GtkWidget>(viewOf(outlook));
    manager->discard(outlook);
    store->remove(outlook);
    EXPECT_EQ(gtk_widget_get_parent(removedView.get()), nullptr);
    EXPECT_EQ(content->visibleWebView(), viewOf(gmail));
    EXPECT_EQ(webAreaViews(), (std::set<GtkWidget*> { viewOf(gmail), viewOf(calendar) }));
}

using AccountPickerViewTest = ContentViewTest;

TEST_F(AccountPickerViewTest, CardShowsRecipientsTheFirstNineMailAccountsAndTheHint) {
    std::vector<Account> mail { addAccount("home@example.com") };
    store->addCalendar(mail[0]);
    mail.push_back(addAccount("Work Outlook with a rather long name", AccountService::Outlook));
    for (int i = 3; i <= 10; ++i)
        mail.push_back(addAccount("account " + std::to_string(i)));
    show();
    EXPECT_FALSE(gtk_widget_get_visible(content->picker().widget()));
    AccountPickerView& picker = content->picker();
    content->handleOpenURL("mailto:ana@example.com,tom@example.com?subject=Hi");
    ASSERT_TRUE(waitUntil([&] { return gtk_revealer_get_child_revealed(GTK_REVEALER(picker.widget())); }));
    auto text = [](GtkWidget* label) { return std::string(gtk_label_get_text(GTK_LABEL(label))); };
    EXPECT_EQ(text(picker.recipientLabel()), "To: ana@example.com, tom@example.com");
    EXPECT_EQ(text(picker.hintLabel()), SenderChoice::hint(9));
    auto buttons = picker.accountButtons();
    ASSERT_EQ(buttons.size(), 9u);
    for (size_t i = 0; i < buttons.size(); ++i) {
        auto* tile = ORVANE_AVATAR_VIEW(AccountPickerView::tileOf(buttons[i]));
        EXPECT_EQ(orvane_avatar_view_get_account(tile).id, mail[i].id);
        EXPECT_EQ(bool(orvane_avatar_view_get_selected(tile)), i == 0);
        EXPECT_FALSE(orvane_avatar_view_get_show_badge(tile));
        // Under the tile: its number, then a label at most 96 px wide.
        GtkWidget* number = gtk_widget_get_next_sibling(GTK_WIDGET(tile));
        EXPECT_EQ(text(number), std::to_string(i + 1));
        EXPECT_LE(gtk_widget_get_width(gtk_widget_get_next_sibling(number)), AccountPickerView::kLabelMaxWidth);
    }
    EXPECT_EQ(gtk_widget_get_height(picker.backdrop()), gtk_widget_get_height(content->widget())) << "it covers the content";

    // A megabyte of recipients makes a short line, cut in the middle.
    std::string many;
    while (many.size() < 1024 * 1024)
        many += "someone" + std::to_string(many.size()) + "@example.com,";
    content->handleOpenURL("mailto:" + many + "last@example.com");
    std::string line = text(picker.recipientLabel());
    EXPECT_LE(g_utf8_strlen(line.c_str(), -1), AccountPickerView::kMaxRecipientChars + 1);
    EXPECT_EQ(line.rfind("To: someone0@example.com, ", 0), 0u);
    EXPECT_TRUE(g_str_has_suffix(line.c_str(), "last@example.com"));
}

TEST_F(AccountPickerViewTest, OnlyItsKeysButtonsAndBackdropAnswerIt) {
    const Account home = addAccount("home");
    const Account work = addAccount("work", AccountService::Outlook);
    store->setSelectedAccountID(home.id);
    show();
    AccountPickerView& picker = content->picker();
    content->handleOpenURL("mailto:a@example.com");
    ASSERT_TRUE(waitUntil([&] { return gtk_revealer_get_child_revealed(GTK_REVEALER(picker.widget())); }));

    // A digit beyond the offered accounts, and one with Ctrl, are not the picker's.
    EXPECT_FALSE(picker.handleKey(GDK_KEY_3, GdkModifierType(0)));
    EXPECT_FALSE(picker.handleKey(GDK_KEY_2, GDK_CONTROL_MASK));
    // A real click on the card itself changes nothing.
    ASSERT_TRUE(canSendXInput(content->widget())) << "needs X11 and xdotool (tools/setup.sh installs them)";
    {
        XInputLock lock;
        ASSERT_TRUE(pointerAt(picker.card(), { "click", "1" }, 6, 6));
    }
    EXPECT_TRUE(content->pendingMailto());
    EXPECT_EQ(store->selectedAccountID(), home.id);

    // A button picks its account.
    gtk_widget_activate(picker.accountButtons()[1]);
    EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == work.id; }));
    EXPECT_FALSE(content->pendingMailto());
    EXPECT_TRUE(waitUntil([&] { return !gtk_widget_get_visible(picker.widget()); }));
    // Once gone, the layer takes no clicks from the content.
    GtkWidget* picked = gtk_widget_pick(content->widget(), 15, 15, GTK_PICK_DEFAULT);
    EXPECT_FALSE(picked && gtk_widget_is_ancestor(picked, picker.widget()));

    // A default that names no account: Return does nothing, the picker stays.
    store->setDefaultMailtoAccountID("00000000-0000-4000-8000-000000000000");
    content->handleOpenURL("mailto:a@example.com");
    EXPECT_TRUE(picker.handleKey(GDK_KEY_Return, GdkModifierType(0)));
    EXPECT_TRUE(content->pendingMailto());
    EXPECT_TRUE(picker.handleKey(GDK_KEY_1, GdkModifierType(0)));
    EXPECT_EQ(store->selectedAccountID(), home.id);
}

} // namespace
} // namespace orvane::test
