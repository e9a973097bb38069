// The sender picker in the main window's content, driven by real keys and
// clicks through the X server: which account each key picks, what a cancel
// leaves behind, and what the card shows.
#include "AccountPickerView.h"

#include "AvatarView.h"
#include "ContentView.h"
#include "WidgetPixels.h"
#include "XInput.h"
#include "Files.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"
#include "WebViewManager.h"

#include <adwaita.h>
#include <gtest/gtest.h>

using namespace orvane;
using namespace orvane::test;

namespace {

class AccountPickerViewTest : public testing::Test {
protected:
    void SetUp() override {
        adw_init();
        freshXDGFolders();
        sendServicesNowhere();
        store = std::make_unique<AccountStore>();
        manager = std::make_unique<WebViewManager>();
        manager->configure(*store);
    }

    void TearDown() override {
        content.reset();
        if (window)
            gtk_window_destroy(window);
        manager.reset();
        store.reset();
        drainEvents();
    }

    Account addMail(const std::string& label, bool outlook = false) {
        Account account = outlook ? store->addOutlookAccount() : store->addAccount();
        account.label = label;
        store->update(account);
        return account;
    }

    void show() {
        content = std::make_unique<ContentView>(*store, *manager);
        window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(window, 900, 600);
        gtk_window_set_child(window, content->widget());
        content->refresh();
        gtk_window_present(window);
        waitUntil([&] { return gtk_widget_get_mapped(content->widget()) && gtk_widget_get_width(content->widget()) > 0; });
    }

    AccountPickerView& picker() { return content->picker(); }
    bool pickerShown() {
        return gtk_widget_get_visible(picker().widget()) && gtk_widget_get_mapped(picker().card())
            && gtk_revealer_get_child_revealed(GTK_REVEALER(picker().widget()));
    }
    bool pickerGone() { return !gtk_widget_get_visible(picker().widget()); }

    // Opens a link and waits until the picker has faded in and has the keys.
    void openAndWait(const std::string& url) {
        content->handleOpenURL(url);
        ASSERT_TRUE(waitUntil([&] { return pickerShown(); }));
    }

    // Puts the keyboard focus into the selected account's page, as after a
    // click into it: the picker's keys must not depend on where it is.
    void focusPage() {
        if (GtkWidget* view = content->visibleWebView())
            gtk_widget_grab_focus(view);
    }

    static std::string text(GtkWidget* label) { return gtk_label_get_text(GTK_LABEL(label)); }

    std::unique_ptr<AccountStore> store;
    std::unique_ptr<WebViewManager> manager;
    std::unique_ptr<ContentView> content;
    GtkWindow* window = nullptr;
};

TEST_F(AccountPickerViewTest, CardShowsTitleRecipientsOneButtonPerAccountAndTheHint) {
    Account home = addMail("home@example.com");
    store->addCalendar(home);
    Account work = addMail("Work Outlook with a rather long name", true);
    Account third = addMail("third@example.com");
    store->setSelectedAccountID(home.id);
    store->save();
    show();
    EXPECT_TRUE(pickerGone());

    openAndWait("mailto:ana@example.com,tom@example.com?subject=Hi");
    EXPECT_EQ(text(picker().titleLabel()), "Send from which account?");
    EXPECT_EQ(text(picker().recipientLabel()), "To: ana@example.com, tom@example.com");
    EXPECT_EQ(gtk_label_get_ellipsize(GTK_LABEL(picker().recipientLabel())), PANGO_ELLIPSIZE_MIDDLE);
    EXPECT_EQ(text(picker().hintLabel()), "Press 1\u20133  \u00b7  Return = default  \u00b7  Esc to cancel");

    // The mail side only, in order; the first one is highlighted.
    auto buttons = picker().accountButtons();
    ASSERT_EQ(buttons.size(), 3u);
    const Account* expected[] = { &home, &work, &third };
    for (size_t i = 0; i < buttons.size(); ++i) {
        auto* tile = ORVANE_AVATAR_VIEW(AccountPickerView::tileOf(buttons[i]));
        EXPECT_EQ(orvane_avatar_view_get_account(tile).id, expected[i]->id);
        EXPECT_EQ(bool(orvane_avatar_view_get_selected(tile)), i == 0);
        EXPECT_EQ(orvane_avatar_view_get_unread(tile), 0);
        EXPECT_FALSE(orvane_avatar_view_get_show_badge(tile));
        EXPECT_EQ(orvane_avatar_view_get_size(tile), 52);
        EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(tile)), 52);
        // Under the tile: the number, then the label at most 96 px wide.
        GtkWidget* number = gtk_widget_get_next_sibling(GTK_WIDGET(tile));
        EXPECT_EQ(text(number), std::to_string(i + 1));
        GtkWidget* name = gtk_widget_get_next_sibling(number);
        EXPECT_LE(gtk_widget_get_width(name), AccountPickerView::kLabelMaxWidth);
    }

    // The backdrop covers the whole content; the card sits in its middle.
    GtkWidget* root = content->widget();
    EXPECT_EQ(gtk_widget_get_width(picker().backdrop()), gtk_widget_get_width(root));
    EXPECT_EQ(gtk_widget_get_height(picker().backdrop()), gtk_widget_get_height(root));
    graphene_point_t card = originIn(picker().card(), root);
    EXPECT_NEAR(card.x * 2 + gtk_widget_get_width(picker().card()), gtk_widget_get_width(root), 2);
    EXPECT_NEAR(card.y * 2 + gtk_widget_get_height(picker().card()), gtk_widget_get_height(root), 2);

    // Black at 35 % over the content, a lighter card in the middle.
    Rendering shot = renderWidget(root);
    ASSERT_TRUE(shot);
    if (const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR"))
        shot.saveTo(std::string(keep) + "/account-picker.png");
    Pixel corner = shot.at(gtk_widget_get_width(root) - 20, 20);
    EXPECT_LT(corner.red, 190) << corner;
    Pixel inCard = shot.at(card.x + 10, card.y + gtk_widget_get_height(picker().card()) / 2.0);
    EXPECT_GT(inCard.red, 200) << inCard;

    // No recipient: "New message".
    content->handleOpenURL("mailto:?subject=Nothing");
    EXPECT_EQ(text(picker().recipientLabel()), "To: New message");
}

TEST_F(AccountPickerViewTest, DigitsReturnAndEscapeWorkWithoutThePointer) {
    Account home = addMail("home");
    Account work = addMail("work", true);
    store->setSelectedAccountID(home.id);
    store->save();
    show();
    if (!canSendXInput(content->widget()))
        FAIL() << "needs X11 and xdotool (tools/setup.sh installs them)";
    focusPage();

    // Escape: nothing selected, nothing remembered.
    openAndWait("mailto:a@example.com");
    ASSERT_TRUE(pressKeys("Escape"));
    EXPECT_TRUE(waitUntil([&] { return !content->pendingMailto() && pickerGone(); }));
    EXPECT_EQ(store->selectedAccountID(), home.id);
    EXPECT_FALSE(store->lastUsedSenderID());

    // A digit beyond the offered accounts and a digit with Ctrl do nothing.
    openAndWait("mailto:a@example.com");
    ASSERT_TRUE(pressKeys("3"));
    ASSERT_TRUE(pressKeys("ctrl+2"));
    drainEvents();
    EXPECT_TRUE(content->pendingMailto());
    EXPECT_EQ(store->selectedAccountID(), home.id);

    // 2 picks the second account, selects and remembers it, and saves.
    ASSERT_TRUE(pressKeys("2"));
    EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == work.id; }));
    EXPECT_EQ(store->lastUsedSenderID(), work.id);
    EXPECT_FALSE(content->pendingMailto());
    EXPECT_TRUE(waitUntil([&] { return pickerGone(); }));
    AccountStore reloaded;
    EXPECT_EQ(reloaded.selectedAccountID(), work.id);

    // Return picks the highlighted account: now the last sender.
    store->setSelectedAccountID(home.id);
    openAndWait("mailto:b@example.com");
    auto buttons = picker().accountButtons();
    ASSERT_EQ(buttons.size(), 2u);
    EXPECT_TRUE(orvane_avatar_view_get_selected(ORVANE_AVATAR_VIEW(AccountPickerView::tileOf(buttons[1]))));
    focusPage();
    ASSERT_TRUE(pressKeys("Return"));
    EXPECT_TRUE(waitUntil([&] { return !content->pendingMailto(); }));
    EXPECT_EQ(store->selectedAccountID(), work.id);
}

TEST_F(AccountPickerViewTest, BackdropClickCancelsAndButtonsPick) {
    Account home = addMail("home");
    Account work = addMail("work");
    store->setSelectedAccountID(home.id);
    show();
    if (!canSendXInput(content->widget()))
        FAIL() << "needs X11 and xdotool (tools/setup.sh installs them)";

    openAndWait("mailto:a@example.com");
    // A click on the card itself changes nothing.
    ASSERT_TRUE(pointerAt(picker().card(), { "click", "1" }, 6, 6));
    drainEvents();
    EXPECT_TRUE(content->pendingMailto());
    ASSERT_TRUE(pointerAt(picker().backdrop(), { "click", "1" }, 15, 15));
    EXPECT_TRUE(waitUntil([&] { return !content->pendingMailto(); }));
    EXPECT_EQ(store->selectedAccountID(), home.id);
    EXPECT_FALSE(store->lastUsedSenderID());
    EXPECT_TRUE(waitUntil([&] { return pickerGone(); }));

    // Once gone, the layer takes no clicks from the content.
    GtkWidget* picked = gtk_widget_pick(content->widget(), 15, 15, GTK_PICK_DEFAULT);
    EXPECT_FALSE(picked && gtk_widget_is_ancestor(picked, picker().widget()));

    openAndWait("mailto:a@example.com");
    auto buttons = picker().accountButtons();
    ASSERT_EQ(buttons.size(), 2u);
    ASSERT_TRUE(pointerAt(buttons[1], { "click", "1" }));
    EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == work.id; }));
    EXPECT_FALSE(content->pendingMailto());
}

TEST_F(AccountPickerViewTest, TenAccountsOfferNineAndReturnReachesTheTenthDefault) {
    std::vector<Account> mail;
    for (int i = 1; i <= 10; ++i)
        mail.push_back(addMail("account " + std::to_string(i)));
    store->setDefaultMailtoAccountID(mail[9].id);
    store->setSelectedAccountID(mail[0].id);
    show();
    openAndWait("mailto:a@example.com");
    auto buttons = picker().accountButtons();
    ASSERT_EQ(buttons.size(), 9u);
    EXPECT_EQ(text(picker().hintLabel()), "Press 1\u20139  \u00b7  Return = default  \u00b7  Esc to cancel");
    for (GtkWidget* button : buttons)
        EXPECT_FALSE(orvane_avatar_view_get_selected(ORVANE_AVATAR_VIEW(AccountPickerView::tileOf(button))));
    if (!canSendXInput(content->widget()))
        FAIL() << "needs X11 and xdotool (tools/setup.sh installs them)";

    ASSERT_TRUE(pressKeys("Return"));
    EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == mail[9].id; }));

    // A default that names no account: Return does nothing, the picker stays.
    store->setDefaultMailtoAccountID("00000000-0000-4000-8000-000000000000");
    openAndWait("mailto:a@example.com");
    ASSERT_TRUE(pressKeys("Return"));
    drainEvents();
    EXPECT_TRUE(content->pendingMailto());
    EXPECT_TRUE(pickerShown());
    ASSERT_TRUE(pressKeys("9"));
    EXPECT_TRUE(waitUntil([&] { return store->selectedAccountID() == mail[8].id; }));
}

TEST_F(AccountPickerViewTest, AMegabyteLinkShowsAShortRecipientLine) {
    addMail("home");
    show();
    std::string many;
    while (many.size() < 1024 * 1024)
        many += "someone" + std::to_string(many.size()) + "@example.com,";
    openAndWait("mailto:" + many + "last@example.com");
    std::string line = text(picker().recipientLabel());
    EXPECT_LE(g_utf8_strlen(line.c_str(), -1), AccountPickerView::kMaxRecipientChars + 1);
    EXPECT_EQ(line.rfind("To: someone0@example.com, ", 0), 0u);
    EXPECT_TRUE(g_str_has_suffix(line.c_str(), "last@example.com"));
}

} // namespace
