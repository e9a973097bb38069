#include "AccountPickerView.h"

#include "AppResources.h"
#include "GRef.h"
#include "AvatarView.h"
#include "SenderChoice.h"
#include "HeapBox.h"

#include <adwaita.h>

namespace orvane {

namespace {

constexpr int kButtonContentSpacing = 6;
constexpr const char* kAccountIDKey = "orvane-account-id";

GtkWidget* label(const char* text, std::initializer_list<const char*> classes) {
    GtkWidget* widget = gtk_label_new(text);
    for (const char* name : classes)
        gtk_widget_add_css_class(widget, name);
    return widget;
}

// Keeps the head and the tail of a very long line: the label ellipsizes in
// the middle anyway, and Pango need not lay out a megabyte of addresses.
std::string middleCut(const std::string& text, long maxChars) {
    long length = g_utf8_strlen(text.c_str(), static_cast<gssize>(text.size()));
    if (length <= maxChars)
        return text;
    const char* start = text.c_str();
    const char* headEnd = g_utf8_offset_to_pointer(start, maxChars / 2);
    const char* tailStart = g_utf8_offset_to_pointer(start, length - maxChars / 2);
    return std::string(start, headEnd) + "\u2026" + std::string(tailStart);
}

int digitOf(guint keyval) {
    if (keyval >= GDK_KEY_1 && keyval <= GDK_KEY_9)
        return static_cast<int>(keyval - GDK_KEY_1) + 1;
    if (keyval >= GDK_KEY_KP_1 && keyval <= GDK_KEY_KP_9)
        return static_cast<int>(keyval - GDK_KEY_KP_1) + 1;
    return 0;
}

} // namespace

AccountPickerView::AccountPickerView(AccountStore& store, PickHandler onPick, CancelHandler onCancel)
    : m_store(store)
    , m_onPick(std::move(onPick))
    , m_onCancel(std::move(onCancel))
    , m_keys(gtk_event_controller_key_new()) {
    build();
    gtk_event_controller_set_propagation_phase(m_keys.get(), GTK_PHASE_CAPTURE);
    gtk_event_controller_set_name(m_keys.get(), "orvane-picker-keys");
    g_signal_connect(m_keys.get(), "key-pressed", G_CALLBACK(onKeyPressed), this);
    m_storeSubscription = m_store.observe([this](unsigned) { scheduleRebuild(); });
}

AccountPickerView::~AccountPickerView() {
    m_lifetime.end();
    m_storeSubscription.reset();
    detachKeys();
    g_signal_handlers_disconnect_by_data(m_keys.get(), this);
    // The content may keep its overlay a little longer; the picker's
    // widgets, whose handlers point here, leave it now.
    GtkWidget* layer = m_revealer.get();
    if (GtkWidget* parent = gtk_widget_get_parent(layer)) {
        if (GTK_IS_OVERLAY(parent))
            gtk_overlay_remove_overlay(GTK_OVERLAY(parent), layer);
        else
            gtk_widget_unparent(layer);
    }
}

void AccountPickerView::build() {
    ensureUIResources();
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/AccountPickerView.ui"));
    auto widget = [&builder](const char* id) { return GTK_WIDGET(gtk_builder_get_object(builder.get(), id)); };
    m_revealer = Ref<GtkWidget>(widget("revealer"));
    GtkWidget* revealer = m_revealer.get();
    gtk_revealer_set_transition_duration(GTK_REVEALER(revealer), kFadeMilliseconds);
    ensureStyle(gtk_widget_get_display(revealer));
    m_layer = widget("layer");
    m_backdrop = widget("backdrop");
    m_card = widget("card");
    m_title = widget("title");
    m_recipients = widget("recipients");
    m_buttonRow = widget("button_row");
    m_hint = widget("hint");

    g_signal_connect(gtk_builder_get_object(builder.get(), "backdrop_click"), "released",
        G_CALLBACK(+[](GtkGestureClick* gesture, int presses, double x, double y, gpointer self) {
            GtkWidget* backdrop = gtk_event_controller_get_widget(GTK_EVENT_CONTROLLER(gesture));
            if (presses == 1 && gtk_widget_contains(backdrop, x, y))
                static_cast<AccountPickerView*>(self)->cancel();
        }), this);

    m_mapped = SignalConnection::connect(m_layer, "map", &AccountPickerView::onMapped, this);
    m_unmapped = SignalConnection::connect(m_layer, "unmap", &AccountPickerView::onUnmapped, this);
    m_revealed = SignalConnection::connect(revealer, "notify::child-revealed", &AccountPickerView::onChildRevealed, this);
}

void AccountPickerView::present(const MailtoComponents& mailto) {
    m_presented = true;
    setRecipients(mailto);
    rebuildButtons();
    gtk_widget_set_can_target(m_revealer.get(), TRUE);
    gtk_widget_set_visible(m_revealer.get(), TRUE);
    gtk_revealer_set_reveal_child(GTK_REVEALER(m_revealer.get()), TRUE);
    if (gtk_widget_get_mapped(m_layer)) {
        attachKeys();
        gtk_widget_grab_focus(m_card);
    }
}

void AccountPickerView::dismiss() {
    if (!m_presented)
        return;
    m_presented = false;
    detachKeys();
    // Clicks go to the content again while the picker fades out.
    gtk_widget_set_can_target(m_revealer.get(), FALSE);
    gtk_revealer_set_reveal_child(GTK_REVEALER(m_revealer.get()), FALSE);
    if (!gtk_widget_get_mapped(m_layer))
        fadeFinished();
}

void AccountPickerView::fadeFinished() {
    if (!m_presented && !gtk_revealer_get_child_revealed(GTK_REVEALER(m_revealer.get())))
        gtk_widget_set_visible(m_revealer.get(), FALSE);
}

void AccountPickerView::setRecipients(const MailtoComponents& mailto) {
    std::string line = middleCut(SenderChoice::recipientLine(mailto), kMaxRecipientChars);
    gtk_label_set_text(GTK_LABEL(m_recipients), line.c_str());
}

void AccountPickerView::scheduleRebuild() {
    // Store changes arrive in the middle of a pick (the sender becomes the
    // selected account); the buttons are rebuilt once that is over.
    if (m_rebuildScheduled)
        return;
    m_rebuildScheduled = true;
    struct Deferred {
        Lifetime::Watch alive;
        AccountPickerView* picker;
    };
    g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, [](gpointer data) -> gboolean {
        auto* deferred = static_cast<Deferred*>(data);
        if (deferred->alive.alive() && deferred->picker->m_rebuildScheduled)
            deferred->picker->rebuildButtons();
        return G_SOURCE_REMOVE;
    }, HeapBox::make<Deferred>(Deferred { m_lifetime.watch(), this }), HeapBox::free<Deferred>);
}

void AccountPickerView::rebuildButtons() {
    m_rebuildScheduled = false;
    while (GtkWidget* child = gtk_widget_get_first_child(m_buttonRow))
        gtk_box_remove(GTK_BOX(m_buttonRow), child);
    auto offered = SenderChoice::pickable(m_store);
    auto highlighted = SenderChoice::highlightedID(m_store);
    for (size_t i = 0; i < offered.size(); ++i)
        gtk_box_append(GTK_BOX(m_buttonRow), makeButton(offered[i], i + 1, highlighted == offered[i].id));
    std::string hint = SenderChoice::hint(offered.size());
    gtk_label_set_text(GTK_LABEL(m_hint), hint.c_str());
}

GtkWidget* AccountPickerView::makeButton(const Account& account, size_t position, bool highlighted) {
    GtkWidget* button = gtk_button_new();
    gtk_widget_add_css_class(button, "flat");
    gtk_widget_add_css_class(button, "orvane-picker-account");
    gtk_widget_set_valign(button, GTK_ALIGN_START);
    gtk_widget_set_focus_on_click(button, FALSE);
    gtk_widget_set_tooltip_text(button, account.label.c_str());
    gtk_accessible_update_property(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL, account.label.c_str(), -1);
    g_object_set_data_full(G_OBJECT(button), kAccountIDKey, g_strdup(account.id.c_str()), g_free);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, kButtonContentSpacing);
    gtk_button_set_child(GTK_BUTTON(button), content);

    // The button already carries the account's name; its picture says nothing more.
    GtkWidget* tile = GTK_WIDGET(g_object_new(ORVANE_TYPE_AVATAR_VIEW, "size", kTileSize, "unread", int64_t(0),
        "show-badge", FALSE, "selected", highlighted, "accessible-role", GTK_ACCESSIBLE_ROLE_PRESENTATION, nullptr));
    orvane_avatar_view_set_account(ORVANE_AVATAR_VIEW(tile), account);
    gtk_widget_set_halign(tile, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(content), tile);

    std::string number = std::to_string(position);
    gtk_box_append(GTK_BOX(content), label(number.c_str(), { "orvane-picker-number", "dim-label" }));

    GtkWidget* name = label(account.label.c_str(), { "caption", "dim-label" });
    gtk_label_set_single_line_mode(GTK_LABEL(name), TRUE);
    gtk_label_set_ellipsize(GTK_LABEL(name), PANGO_ELLIPSIZE_END);
    GtkWidget* clamp = adw_clamp_new();
    adw_clamp_set_maximum_size(ADW_CLAMP(clamp), kLabelMaxWidth);
    adw_clamp_set_tightening_threshold(ADW_CLAMP(clamp), kLabelMaxWidth);
    adw_clamp_set_child(ADW_CLAMP(clamp), name);
    gtk_widget_set_halign(clamp, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(content), clamp);

    g_signal_connect(button, "clicked", G_CALLBACK(+[](GtkButton* button, gpointer self) {
        const char* id = static_cast<const char*>(g_object_get_data(G_OBJECT(button), kAccountIDKey));
        if (id)
            static_cast<AccountPickerView*>(self)->pick(id);
    }), this);
    return button;
}

std::vector<GtkWidget*> AccountPickerView::accountButtons() const {
    std::vector<GtkWidget*> buttons;
    for (GtkWidget* child = gtk_widget_get_first_child(m_buttonRow); child; child = gtk_widget_get_next_sibling(child))
        buttons.push_back(child);
    return buttons;
}

GtkWidget* AccountPickerView::tileOf(GtkWidget* button) {
    GtkWidget* content = gtk_button_get_child(GTK_BUTTON(button));
    return content ? gtk_widget_get_first_child(content) : nullptr;
}

bool AccountPickerView::handleKey(guint keyval, GdkModifierType state) {
    if (!m_presented || (state & gtk_accelerator_get_default_mod_mask()) != 0)
        return false;
    if (int digit = digitOf(keyval)) {
        // Digits beyond the offered accounts are not the picker's.
        auto account = SenderChoice::forDigit(m_store, digit);
        if (!account)
            return false;
        pick(account->id);
        return true;
    }
    if (keyval == GDK_KEY_Return || keyval == GDK_KEY_KP_Enter || keyval == GDK_KEY_ISO_Enter) {
        // An absent highlighted account does nothing; the picker stays.
        if (auto account = SenderChoice::forReturn(m_store))
            pick(account->id);
        return true;
    }
    if (keyval == GDK_KEY_Escape) {
        cancel();
        return true;
    }
    return false;
}

void AccountPickerView::pick(const std::string& accountID) {
    if (!m_presented)
        return;
    const Account* found = m_store.account(accountID);
    if (!found)
        return;
    Account account = *found;
    auto handler = m_onPick; // the handler may dismiss or replace the picker
    if (handler)
        handler(account);
}

void AccountPickerView::cancel() {
    if (!m_presented)
        return;
    auto handler = m_onCancel;
    if (handler)
        handler();
}

// The keys belong to the whole window while the picker shows, so they work
// wherever the focus is (a page usually has it) and without any pointer.
void AccountPickerView::attachKeys() {
    GtkRoot* root = gtk_widget_get_root(m_layer);
    if (!root || m_keysWindow == GTK_WIDGET(root))
        return;
    detachKeys();
    m_keysWindow = GTK_WIDGET(root);
    g_object_add_weak_pointer(G_OBJECT(m_keysWindow), reinterpret_cast<gpointer*>(&m_keysWindow));
    gtk_widget_add_controller(m_keysWindow, GTK_EVENT_CONTROLLER(g_object_ref(m_keys.get())));
}

void AccountPickerView::detachKeys() {
    if (!m_keysWindow)
        return;
    g_object_remove_weak_pointer(G_OBJECT(m_keysWindow), reinterpret_cast<gpointer*>(&m_keysWindow));
    gtk_widget_remove_controller(m_keysWindow, m_keys.get());
    m_keysWindow = nullptr;
}

void AccountPickerView::onMapped(GtkWidget*, gpointer data) {
    auto* self = static_cast<AccountPickerView*>(data);
    if (!self->m_presented)
        return;
    self->attachKeys();
    gtk_widget_grab_focus(self->m_card);
}

void AccountPickerView::onUnmapped(GtkWidget*, gpointer data) {
    static_cast<AccountPickerView*>(data)->detachKeys();
}

void AccountPickerView::onChildRevealed(GObject*, GParamSpec*, gpointer data) {
    static_cast<AccountPickerView*>(data)->fadeFinished();
}

gboolean AccountPickerView::onKeyPressed(GtkEventControllerKey*, guint keyval, guint, GdkModifierType state, gpointer data) {
    return static_cast<AccountPickerView*>(data)->handleKey(keyval, state);
}

} // namespace orvane
