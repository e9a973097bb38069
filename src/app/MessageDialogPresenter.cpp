#include "MessageDialogPresenter.h"

#include "ScriptDialogs.h"
#include "HeapBox.h"

#include <adwaita.h>

namespace orvane::MessageDialogPresenter {

namespace {

// Lives on the dialog; answers the page once, by the response chosen or, when
// the dialog goes away unanswered (its window closed), by the close response.
struct Pending {
    ScriptDialogs::Completion completion;
    std::string closeResponse;
    GtkEntry* entry = nullptr; // owned by the dialog
    bool answered = false;

    void answer(const std::string& response) {
        if (answered)
            return;
        answered = true;
        ScriptDialogs::Answer result { response, {} };
        if (entry)
            result.text = gtk_editable_get_text(GTK_EDITABLE(entry));
        completion(result);
    }
};

constexpr const char* kPendingKey = "orvane-script-dialog";

} // namespace

void present(GtkWindow* parent, const ScriptDialogs::Request& request, ScriptDialogs::Completion completion) {
    adw_init();
    auto* dialog = ADW_MESSAGE_DIALOG(adw_message_dialog_new(parent, request.message.c_str(), nullptr));
    for (const auto& response : request.responses)
        adw_message_dialog_add_response(dialog, response.id.c_str(), response.label.c_str());
    adw_message_dialog_set_default_response(dialog, request.defaultResponse.c_str());
    adw_message_dialog_set_close_response(dialog, request.closeResponse.c_str());

    auto* pending = HeapBox::make<Pending>(Pending { std::move(completion), request.closeResponse });
    if (request.entryText) {
        pending->entry = GTK_ENTRY(gtk_entry_new());
        gtk_widget_set_size_request(GTK_WIDGET(pending->entry), ScriptDialogs::kEntryWidth, ScriptDialogs::kEntryHeight);
        gtk_widget_set_halign(GTK_WIDGET(pending->entry), GTK_ALIGN_CENTER);
        gtk_editable_set_text(GTK_EDITABLE(pending->entry), request.entryText->c_str());
        gtk_entry_set_activates_default(pending->entry, TRUE);
        adw_message_dialog_set_extra_child(dialog, GTK_WIDGET(pending->entry));
    }
    g_object_set_data_full(G_OBJECT(dialog), kPendingKey, pending, [](gpointer data) {
        auto p = HeapBox::take<Pending>(data);
        p->entry = nullptr; // already gone with the dialog
        p->answer(p->closeResponse);
    });
    g_signal_connect(dialog, "response", G_CALLBACK(+[](AdwMessageDialog* d, const char* response, gpointer) {
        if (auto* p = static_cast<Pending*>(g_object_get_data(G_OBJECT(d), kPendingKey)))
            p->answer(response ? response : p->closeResponse);
    }), nullptr);

    gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
    if (parent)
        gtk_window_set_destroy_with_parent(GTK_WINDOW(dialog), TRUE);
    gtk_window_present(GTK_WINDOW(dialog));
}

} // namespace orvane::MessageDialogPresenter
