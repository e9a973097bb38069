#pragma once

#include "Lifetime.h"
#include "AccountStore.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "MailtoComponents.h"

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// The sender picker: a layer over the whole main-window content that asks
// which account sends a mailto: link. A dimmed backdrop (a click cancels)
// and, centred on it, a card with the title, the recipients, one button per
// offered account (its tile, number and label) and the key hint. While it
// shows, the keys 1 to 9 pick the k-th offered account, Return picks the
// highlighted one and Escape cancels, wherever the window's focus is.
//
// One picker lives as long as its content view; present() fades it in (or
// shows a new link in place), dismiss() fades it out. It reads the accounts
// from the store every time it draws and every time a key is pressed.
class AccountPickerView {
public:
    using PickHandler = std::function<void(const Account&)>;
    using CancelHandler = std::function<void()>;

    AccountPickerView(AccountStore& store, PickHandler onPick, CancelHandler onCancel);
    ~AccountPickerView();
    AccountPickerView(const AccountPickerView&) = delete;
    AccountPickerView& operator=(const AccountPickerView&) = delete;

    // The layer to put in a GtkOverlay above the content; it fills it.
    GtkWidget* widget() const { return m_revealer.get(); }

    void present(const MailtoComponents& mailto);
    void dismiss();

    // The picker's key rules (without modifiers: 1 to 9, Return, Escape);
    // true when the key belongs to the picker.
    bool handleKey(guint keyval, GdkModifierType state);

    // For tests: the parts of the card.
    GtkWidget* backdrop() const { return m_backdrop; }
    GtkWidget* card() const { return m_card; }
    GtkWidget* titleLabel() const { return m_title; }
    GtkWidget* recipientLabel() const { return m_recipients; }
    GtkWidget* hintLabel() const { return m_hint; }
    std::vector<GtkWidget*> accountButtons() const;
    // The tile inside an account button.
    static GtkWidget* tileOf(GtkWidget* button);

    static constexpr double kTileSize = 52;
    static constexpr int kLabelMaxWidth = 96;
    static constexpr unsigned kFadeMilliseconds = 180;
    // The recipient line never hands more than this many characters to the
    // label: it is cut in the middle, where the label shows an ellipsis.
    static constexpr long kMaxRecipientChars = 400;

private:
    void build();
    void rebuildButtons();
    void scheduleRebuild();
    GtkWidget* makeButton(const Account& account, size_t position, bool highlighted);
    void setRecipients(const MailtoComponents& mailto);
    void attachKeys();
    void detachKeys();
    void fadeFinished();
    void pick(const std::string& accountID);
    void cancel();

    static void onMapped(GtkWidget*, gpointer self);
    static void onUnmapped(GtkWidget*, gpointer self);
    static void onChildRevealed(GObject*, GParamSpec*, gpointer self);
    static gboolean onKeyPressed(GtkEventControllerKey*, guint keyval, guint keycode, GdkModifierType state, gpointer self);

    // Borrowed references
    AccountStore& m_store;

    // Owned references
    PickHandler m_onPick;
    CancelHandler m_onCancel;
    Ref<GtkWidget> m_revealer;
    Ref<GtkEventController> m_keys;      // on the window while the picker shows
    GtkWidget* m_keysWindow = nullptr;   // weak pointer to that window
    AccountStore::ChangeObservers::Subscription m_storeSubscription;
    SignalConnection m_mapped;
    SignalConnection m_unmapped;
    SignalConnection m_revealed;
    Lifetime m_lifetime; // for deferred work

    // Template widgets (inside m_revealer)
    GtkWidget* m_layer = nullptr;
    GtkWidget* m_backdrop = nullptr;
    GtkWidget* m_card = nullptr;
    GtkWidget* m_title = nullptr;
    GtkWidget* m_recipients = nullptr;
    GtkWidget* m_buttonRow = nullptr;
    GtkWidget* m_hint = nullptr;

    // View state
    bool m_presented = false;
    bool m_rebuildScheduled = false;
};

} // namespace orvane
