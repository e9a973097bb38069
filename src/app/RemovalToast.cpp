#include "RemovalToast.h"

#include "NotificationFields.h"

#include <glib/gi18n-lib.h>

#include <utility>

namespace orvane {

namespace {

// The title is Pango markup: a label from a page is escaped.
std::string titleFor(const std::vector<Account>& removed) {
    GCharPtr title;
    if (removed.size() == 1 && !removed.front().label.empty()) {
        std::string shown = NotificationFields::plainText(removed.front().label, RemovalToast::kMaxLabelCharacters, false);
        GCharPtr escaped(g_markup_escape_text(shown.c_str(), -1));
        // Translators: the toast after an account was removed; %s is its name.
        title.reset(g_strdup_printf(_("“%s” removed"), escaped.get()));
    } else {
        auto count = static_cast<unsigned>(removed.size());
        title.reset(g_strdup_printf(g_dngettext(GETTEXT_PACKAGE, "%u account removed", "%u accounts removed", count), count));
    }
    return title.get();
}

} // namespace

RemovalToast::RemovalToast(AccountStore& store, Show show)
    : m_store(store)
    , m_show(std::move(show)) {
    m_storeSubscription = store.observe([this](unsigned change) {
        if (change & StoreChangeRemovals)
            update();
    });
}

RemovalToast::~RemovalToast() {
    m_storeSubscription.reset();
    forgetToast();
    m_store.commitRemovals();
}

void RemovalToast::update() {
    if (m_undoing)
        return;
    std::vector<Account> removed = m_store.pendingRemovals();
    if (removed.empty()) {
        if (Ref<AdwToast> toast = m_toast) {
            forgetToast();
            adw_toast_dismiss(toast.get());
        }
        return;
    }
    if (!m_toast) {
        m_toast = adopt(adw_toast_new(""));
        adw_toast_set_button_label(m_toast.get(), _("_Undo"));
        m_connections.push_back(SignalConnection::connect(m_toast.get(), "dismissed", &RemovalToast::dismissed, this));
        m_connections.push_back(SignalConnection::connect(m_toast.get(), "button-clicked", &RemovalToast::undo, this));
    }
    adw_toast_set_title(m_toast.get(), titleFor(removed).c_str());
    // Shown again, a toast on screen starts its time again.
    if (removed.size() > std::exchange(m_told, removed.size()))
        m_show(ADW_TOAST(g_object_ref(m_toast.get())));
}

void RemovalToast::forgetToast() {
    m_connections.clear();
    m_toast.reset();
    m_told = 0;
}

void RemovalToast::dismissed(AdwToast*, gpointer data) {
    auto* self = static_cast<RemovalToast*>(data);
    self->forgetToast();
    self->m_store.commitRemovals();
}

// Newest first, the reverse of how they went.
void RemovalToast::undo(AdwToast*, gpointer data) {
    auto* self = static_cast<RemovalToast*>(data);
    self->forgetToast();
    std::vector<Account> removed = self->m_store.pendingRemovals();
    self->m_undoing = true;
    for (auto it = removed.rbegin(); it != removed.rend(); ++it)
        self->m_store.undoRemoval(it->id);
    self->m_undoing = false;
}

} // namespace orvane
