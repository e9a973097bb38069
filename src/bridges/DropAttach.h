#pragma once

#include "accounts/AccountService.h"
#include "base/GRef.h"
#include "base/SignalConnection.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <optional>
#include <string>
#include <vector>

namespace orvane {

// Files dropped on an account's page (its main view or one of its pop-ups)
// become attachments of a message in that page. A drop target for file lists
// sits on the view in the capture phase, ahead of WebKit's own drop handling,
// so a file drop never reaches the page; drags without local files are
// refused and WebKit handles them as on any view. A drop remembers the files
// (PendingDrops::shared()), brings the window forward, runs the service's
// attach script (which opens a compose form when needed and reports where the
// attach control is) and clicks that point inside the page as a user action.
// The page then asks for a file chooser, and the file-chooser rule set here
// (FileChooserInterceptor) answers it with the dropped files instead.
// Dropped files are only passed on as paths: Orvane never opens them.
// One per view, owned by the view. Main thread only.
class DropAttach {
public:
    // Adds drop attachment to the view (once; later calls do nothing) and
    // makes sure the file-chooser rule is in place. `service` picks the
    // attach script: Google Calendar has none, so its drops only wait.
    static void attach(WebKitWebView* view, std::optional<AccountService> service);
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

    GtkDropTarget* dropTarget() const { return m_target; }
    WebKitWebView* view() const { return m_view; }

    // Waits for the window to become active before the attach script runs.
    static constexpr int kActivationWaits = 20;
    static constexpr guint kActivationWaitMs = 50;

private:
    struct Task;

    DropAttach(WebKitWebView* view, std::optional<AccountService> service);

    static void openComposeAndClickAttach(Task* task);
    static void waitForActiveWindow(Task* task);
    static void runAttachScript(Task* task);
    static void attachScriptFinished(GObject* source, GAsyncResult* result, gpointer data);
    void attachFailed();
    void clickAt(double x, double y);

    // Borrowed references
    WebKitWebView* m_view; // the owner
    GtkDropTarget* m_target = nullptr; // owned by the view

    // Owned references
    std::optional<AccountService> m_service;
    Ref<GCancellable> m_cancellable;
    std::vector<SignalConnection> m_connections; // to the drop target
};

} // namespace orvane
