#pragma once

#include "MailService.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "HeapBox.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

class PendingDrops;
class WebHost;

// Files dropped on an account's page (its main view or one of its pop-ups)
// become attachments of a message in that page. A drop target for file lists
// sits on the view in the capture phase, ahead of WebKit's own drop handling,
// so a file drop never reaches the page; drags without local files are
// refused and WebKit handles them as on any view. A drop remembers the files
// (the manager's PendingDrops), brings the window forward, runs the service's
// attach script (which opens a compose form when needed and reports where the
// attach control is) and clicks that point inside the page as a user action.
// The page then asks for a file chooser, and the file-chooser rule set here
// (FileChooserInterceptor) answers it with the dropped files instead, but
// only when the chooser is the service's own: the web-process extension
// reports the origin of the frame whose file input was clicked just before
// the chooser request, and that origin must be on one of the service's own
// hosts. Any other chooser (a foreign frame's, one opened without a click on
// a file input) gets the ordinary file chooser, and the files keep waiting.
// Dropped files are only passed on as paths: Orvane never opens them.
// One per view, owned by the view. Main thread only.
class DropAttach {
public:
    // Adds drop attachment to the view (once; later calls do nothing) and
    // makes sure the file-chooser rule is in place. `service` picks the
    // attach script (Google Calendar has none, so its drops only wait) and
    // the hosts whose choosers may take dropped files. `drops` keeps the
    // files; `owner` is the account's main view when `view` is a pop-up,
    // whose dropped files the pop-up's choosers may take as well.
    // A drop that cannot attach is told to `host`, which outlives the view.
    static void attach(WebKitWebView* view, const MailService& service,
        const std::shared_ptr<PendingDrops>& drops, WebHost& host, WebKitWebView* owner = nullptr);
    // The view's drop attachment, or null.
    static DropAttach* of(WebKitWebView* view);

    ~DropAttach();
    DropAttach(const DropAttach&) = delete;
    DropAttach& operator=(const DropAttach&) = delete;

    // What a drop of these local files does.
    void beginDropAttach(std::vector<std::string> paths);
    // The drop target's handler, given the dropped value (a GdkFileList):
    // true when it held local files and the attach flow started.
    bool drop(const GValue* value);

    // The local paths of a dropped file list, in order; anything that is not
    // a local file (web links) is left out. Nothing is opened or examined.
    static std::vector<std::string> localPaths(const GValue* value);

    // The file-chooser rule for this view: answers the request with dropped
    // files when some wait for it and the chooser is the service's own.
    bool answer(WebKitFileChooserRequest* request);

    GtkDropTarget* dropTarget() const { return m_target; }
    WebKitWebView* view() const { return m_view; }

    // Waits for the window to become active before the attach script runs.
    static constexpr int kActivationWaits = 20;
    static constexpr guint kActivationWaitMs = 50;
    // How long a file-input click waits for the chooser request it opens
    // (which follows it at once on the same connection).
    static constexpr gint64 kFileInputClickLifetimeUs = 1000000;

private:
    friend struct HeapBox::Access;
    struct Task;
    // The extension's report of a click on a file input.
    struct FileInputClick {
        std::string origin;
        gint64 at; // monotonic microseconds
    };

    DropAttach(WebKitWebView* view, const MailService& service, const std::shared_ptr<PendingDrops>& drops,
        WebHost& host, WebKitWebView* owner);
    static gboolean onUserMessage(WebKitWebView*, WebKitUserMessage*, gpointer self);
    WebKitWebView* owner();

    static void openComposeAndClickAttach(Task* task);
    static void waitForActiveWindow(Task* task);
    static void runAttachScript(Task* task);
    static void attachScriptFinished(GObject* source, GAsyncResult* result, gpointer data);
    void attachFailed();
    void clickAt(double x, double y);

    // Borrowed references
    WebKitWebView* m_view; // the owner
    GtkDropTarget* m_target = nullptr; // owned by the view
    WebHost& m_host;

    // Owned references
    const MailService& m_service; // the application's catalogue outlives every view
    std::weak_ptr<PendingDrops> m_drops; // the manager's
    GWeakRef m_owner;
    std::optional<FileInputClick> m_fileInputClick;
    Ref<GCancellable> m_cancellable;
    std::vector<SignalConnection> m_connections; // to the drop target and the view
};

} // namespace orvane
