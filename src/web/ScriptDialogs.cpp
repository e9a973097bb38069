#include "ScriptDialogs.h"

#include "FileNames.h"
#include "WebHost.h"

#include <glib/gi18n-lib.h>

#include <memory>
#include <utility>

namespace orvane::ScriptDialogs {

namespace {

// The dialog WebKit waits on. Closing it lets the page's script go on; a
// dialog nobody answered is closed when the last completion goes away.
class Waiting {
public:
    explicit Waiting(WebKitScriptDialog* dialog) : m_dialog(webkit_script_dialog_ref(dialog)) { }
    ~Waiting() { close(); }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    // Null once answered.
    WebKitScriptDialog* dialog() const { return m_dialog; }
    // Lets go of the dialog without answering it (WebKit answers it itself).
    void release() {
        if (WebKitScriptDialog* dialog = std::exchange(m_dialog, nullptr))
            webkit_script_dialog_unref(dialog);
    }
    void close() {
        if (WebKitScriptDialog* dialog = std::exchange(m_dialog, nullptr)) {
            webkit_script_dialog_close(dialog);
            webkit_script_dialog_unref(dialog);
        }
    }

private:
    WebKitScriptDialog* m_dialog;
};

} // namespace

std::optional<Request> requestFor(WebKitScriptDialog* dialog) {
    Request request;
    const char* message = webkit_script_dialog_get_message(dialog);
    request.message = FileNames::truncatedUTF8(message ? message : "", kMaxMessageBytes);
    switch (webkit_script_dialog_get_dialog_type(dialog)) {
    case WEBKIT_SCRIPT_DIALOG_ALERT:
        request.responses = { { kOK, _("OK") } };
        request.defaultResponse = kOK;
        request.closeResponse = kOK;
        return request;
    case WEBKIT_SCRIPT_DIALOG_PROMPT: {
        const char* text = webkit_script_dialog_prompt_get_default_text(dialog);
        request.entryText = text ? text : "";
        [[fallthrough]];
    }
    case WEBKIT_SCRIPT_DIALOG_CONFIRM:
        // "OK" is the first, default button; laid out the GNOME way, it is
        // the rightmost one, after "Cancel".
        request.responses = { { kCancel, _("Cancel") }, { kOK, _("OK") } };
        request.defaultResponse = kOK;
        request.closeResponse = kCancel;
        return request;
    default:
        return std::nullopt;
    }
}

bool run(WebKitWebView* view, WebKitScriptDialog* dialog, WebHost& host) {
    auto request = requestFor(dialog);
    if (!request)
        return false;
    GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(view));
    GtkWindow* parent = root && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
    auto waiting = std::make_shared<Waiting>(dialog);
    WebKitScriptDialogType type = webkit_script_dialog_get_dialog_type(dialog);
    bool shown = host.ask(parent, *request, [waiting, type](const Answer& answer) {
        WebKitScriptDialog* waitingDialog = waiting->dialog();
        if (!waitingDialog)
            return;
        bool ok = answer.response == kOK;
        if (type == WEBKIT_SCRIPT_DIALOG_CONFIRM)
            webkit_script_dialog_confirm_set_confirmed(waitingDialog, ok);
        else if (type == WEBKIT_SCRIPT_DIALOG_PROMPT && ok)
            webkit_script_dialog_prompt_set_text(waitingDialog, answer.text.c_str());
        waiting->close();
    });
    if (!shown)
        waiting->release();
    return shown;
}

} // namespace orvane::ScriptDialogs
