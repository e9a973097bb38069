#include "DropAttach.h"

#include "PageScripts.h"
#include "BridgeScripts.h"
#include "PendingDrops.h"
#include "MailService.h"
#include "FileChooserInterceptor.h"
#include "ScriptResult.h"
#include "HeapBox.h"
#include "WebHost.h"

#include <glib/gi18n-lib.h>

#include <cmath>
#include <utility>

namespace orvane {

namespace {

constexpr const char* kDataKey = "orvane-drop-attach";
constexpr const char* kClickScript = "bridges/drop-click.js";
constexpr const char* kFileInputMessage = "orvane.file-input";
constexpr gsize kMaxOriginLength = 512;

// A point an attach script reported: an object with finite numbers x and y.
std::optional<std::pair<double, double>> reportedPoint(JSCValue* value) {
    auto json = jsonFromJSC(value);
    if (!json || !json->is_object())
        return std::nullopt;
    auto x = json->find("x");
    auto y = json->find("y");
    if (x == json->end() || y == json->end() || !x->is_number() || !y->is_number())
        return std::nullopt;
    double px = x->get<double>();
    double py = y->get<double>();
    if (!std::isfinite(px) || !std::isfinite(py))
        return std::nullopt;
    return std::make_pair(px, py);
}

GtkWindow* windowOf(WebKitWebView* view) {
    GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(view));
    return root && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
}

} // namespace

// One run of the attach flow; it holds the view weakly and ends quietly when
// the view is gone.
struct DropAttach::Task {
    explicit Task(WebKitWebView* view) { g_weak_ref_init(&this->view, view); }
    ~Task() { g_weak_ref_clear(&view); }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    // The view and its attachment while both exist.
    std::pair<Ref<WebKitWebView>, DropAttach*> resolve() {
        Ref<WebKitWebView> current = adopt(static_cast<WebKitWebView*>(g_weak_ref_get(&view)));
        DropAttach* attachment = current ? DropAttach::of(current.get()) : nullptr;
        return { std::move(current), attachment };
    }

    GWeakRef view;
    int waits = 0;
};

DropAttach::DropAttach(WebKitWebView* view, const MailService& service,
    const std::shared_ptr<PendingDrops>& drops, WebHost& host, WebKitWebView* owner)
    : m_view(view)
    , m_host(host)
    , m_service(service)
    , m_drops(drops)
    , m_cancellable(adopt(g_cancellable_new())) {
    g_weak_ref_init(&m_owner, owner);
    m_connections.push_back(SignalConnection::connect(view, "user-message-received", onUserMessage, this));
    m_target = gtk_drop_target_new(GDK_TYPE_FILE_LIST, GDK_ACTION_COPY);
    // The value is read while the drag moves over the view, so that a drag
    // of web links (which also travel as URI lists) can be handed back to
    // WebKit before it is dropped.
    gtk_drop_target_set_preload(m_target, TRUE);
    gtk_event_controller_set_propagation_phase(GTK_EVENT_CONTROLLER(m_target), GTK_PHASE_CAPTURE);
    gtk_event_controller_set_name(GTK_EVENT_CONTROLLER(m_target), "orvane-drop-attach");
    m_connections.push_back(SignalConnection::connect(m_target, "notify::value",
        +[](GtkDropTarget* target, GParamSpec*, gpointer) {
            const GValue* value = gtk_drop_target_get_value(target);
            if (value && localPaths(value).empty())
                gtk_drop_target_reject(target);
        }, nullptr));
    m_connections.push_back(SignalConnection::connect(m_target, "drop",
        +[](GtkDropTarget*, const GValue* value, double, double, gpointer self) -> gboolean {
            return static_cast<DropAttach*>(self)->drop(value);
        }, this));
    gtk_widget_add_controller(GTK_WIDGET(view), GTK_EVENT_CONTROLLER(m_target));
}

DropAttach::~DropAttach() {
    g_cancellable_cancel(m_cancellable.get());
    m_connections.clear();
    g_weak_ref_clear(&m_owner);
}

void DropAttach::attach(WebKitWebView* view, const MailService& service,
    const std::shared_ptr<PendingDrops>& drops, WebHost& host, WebKitWebView* owner) {
    if (!view || of(view))
        return;
    auto* attachment = HeapBox::make<DropAttach>(view, service, drops, host, owner);
    g_object_set_data_full(G_OBJECT(view), kDataKey, attachment,
        HeapBox::free<DropAttach>);
    // Both live as long as the view; the interceptor finds the attachment anew.
    FileChooserInterceptor::set(view, [view](WebKitFileChooserRequest* request) {
        DropAttach* attached = of(view);
        return attached && attached->answer(request);
    });
}

DropAttach* DropAttach::of(WebKitWebView* view) {
    return view ? static_cast<DropAttach*>(g_object_get_data(G_OBJECT(view), kDataKey)) : nullptr;
}

WebKitWebView* DropAttach::owner() {
    // Only compared, never used: the reference is dropped at once.
    Ref<WebKitWebView> current = adopt(static_cast<WebKitWebView*>(g_weak_ref_get(&m_owner)));
    return current.get();
}

gboolean DropAttach::onUserMessage(WebKitWebView*, WebKitUserMessage* message, gpointer self) {
    const char* name = webkit_user_message_get_name(message);
    if (!name || !g_str_equal(name, kFileInputMessage))
        return FALSE;
    GVariant* parameters = webkit_user_message_get_parameters(message);
    if (!parameters || !g_variant_is_of_type(parameters, G_VARIANT_TYPE_STRING))
        return TRUE;
    gsize length = 0;
    const char* origin = g_variant_get_string(parameters, &length);
    if (length > kMaxOriginLength)
        return TRUE;
    static_cast<DropAttach*>(self)->m_fileInputClick = FileInputClick { origin, g_get_monotonic_time() };
    return TRUE;
}

bool DropAttach::answer(WebKitFileChooserRequest* request) {
    // A click report goes with the one chooser request that follows it.
    std::optional<FileInputClick> click = std::exchange(m_fileInputClick, std::nullopt);
    auto drops = m_drops.lock();
    WebKitWebView* ownerView = owner();
    if (!drops || !drops->waiting(m_view, ownerView))
        return false;
    if (!click || g_get_monotonic_time() - click->at > kFileInputClickLifetimeUs) {
        g_info("Dropped files were kept from a file chooser opened without a click on a file input");
        return false;
    }
    if (!m_service.ownsAddress(click->origin)) {
        g_info("Dropped files were kept from a file chooser of %s", click->origin.c_str());
        return false;
    }
    return drops->answer(m_view, ownerView, request);
}

std::vector<std::string> DropAttach::localPaths(const GValue* value) {
    std::vector<std::string> paths;
    if (!value || !G_VALUE_HOLDS(value, GDK_TYPE_FILE_LIST))
        return paths;
    auto* list = static_cast<GdkFileList*>(g_value_get_boxed(value));
    if (!list)
        return paths;
    GSList* files = gdk_file_list_get_files(list);
    for (GSList* item = files; item; item = item->next) {
        GFile* file = G_FILE(item->data);
        if (!file || !g_file_has_uri_scheme(file, "file"))
            continue;
        GCharPtr path(g_file_get_path(file));
        if (path && *path.get())
            paths.emplace_back(path.get());
    }
    g_slist_free(files);
    return paths;
}

bool DropAttach::drop(const GValue* value) {
    std::vector<std::string> paths = localPaths(value);
    if (paths.empty())
        return false;
    beginDropAttach(std::move(paths));
    return true;
}

void DropAttach::beginDropAttach(std::vector<std::string> paths) {
    if (auto drops = m_drops.lock())
        drops->add(m_view, std::move(paths));
    auto* task = HeapBox::make<Task>(m_view);
    g_idle_add_full(G_PRIORITY_DEFAULT, +[](gpointer data) -> gboolean {
        openComposeAndClickAttach(static_cast<Task*>(data));
        return G_SOURCE_REMOVE;
    }, task, nullptr);
}

void DropAttach::openComposeAndClickAttach(Task* task) {
    auto [view, attachment] = task->resolve();
    if (!attachment) {
        HeapBox::free<Task>(task);
        return;
    }
    const MailService& service = attachment->m_service;
    if (!service.attachClickJS || service.attachClickJS->empty()) {
        // Nothing to click (Google Calendar): the files wait and expire.
        HeapBox::free<Task>(task);
        return;
    }
    if (GtkWindow* window = windowOf(view.get()))
        gtk_window_present(window);
    waitForActiveWindow(task);
}

void DropAttach::waitForActiveWindow(Task* task) {
    auto [view, attachment] = task->resolve();
    if (!attachment) {
        HeapBox::free<Task>(task);
        return;
    }
    GtkWindow* window = windowOf(view.get());
    if ((window && gtk_window_is_active(window)) || task->waits >= kActivationWaits) {
        runAttachScript(task);
        return;
    }
    ++task->waits;
    g_timeout_add_full(G_PRIORITY_DEFAULT, kActivationWaitMs, +[](gpointer data) -> gboolean {
        waitForActiveWindow(static_cast<Task*>(data));
        return G_SOURCE_REMOVE;
    }, task, nullptr);
}

void DropAttach::runAttachScript(Task* task) {
    auto [view, attachment] = task->resolve();
    HeapBox::free<Task>(task);
    if (!attachment)
        return;
    const MailService& service = attachment->m_service;
    if (!service.attachClickJS)
        return;
    const std::string& script = *service.attachClickJS;
    std::string sourceURI = PageScripts::sourceURI(service.attachScriptName);
    webkit_web_view_call_async_javascript_function(view.get(), script.c_str(), static_cast<gssize>(script.size()),
        nullptr, nullptr, sourceURI.c_str(), attachment->m_cancellable.get(), attachScriptFinished, nullptr);
}

void DropAttach::attachScriptFinished(GObject* source, GAsyncResult* result, gpointer) {
    GErrorPtr error;
    auto value = adopt(webkit_web_view_call_async_javascript_function_finish(WEBKIT_WEB_VIEW(source), result,
        GErrorOut(error)));
    if (isCancelled(error.get()))
        return;
    DropAttach* attachment = of(WEBKIT_WEB_VIEW(source));
    if (!attachment)
        return;
    auto point = reportedPoint(value.get());
    if (!point) {
        attachment->attachFailed();
        return;
    }
    // A view outside any window has nothing to click; its files expire.
    if (!windowOf(attachment->m_view))
        return;
    attachment->clickAt(point->first, point->second);
}

// The page showed no attach button to click.
void DropAttach::attachFailed() {
    gtk_widget_error_bell(GTK_WIDGET(m_view));
    auto drops = m_drops.lock();
    auto paths = drops ? drops->pending(m_view) : std::nullopt;
    if (drops)
        drops->clear(m_view);
    if (!paths || paths->empty())
        return;
    std::string message;
    if (paths->size() == 1) {
        GCharPtr name(g_filename_display_basename(paths->front().c_str()));
        message = GCharPtr(g_strdup_printf(_("Could not attach “%s”: the page has no place for attachments"), name.get())).get();
    } else {
        message = GCharPtr(g_strdup_printf(ngettext("Could not attach %u file: the page has no place for attachments",
            "Could not attach %u files: the page has no place for attachments", paths->size()), unsigned(paths->size()))).get();
    }
    m_host.reportFailure(message, m_view);
}

void DropAttach::clickAt(double x, double y) {
    std::string_view script = BridgeScripts::text(kClickScript);
    if (script.empty())
        return;
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&arguments, "{sv}", "x", g_variant_new_double(x));
    g_variant_builder_add(&arguments, "{sv}", "y", g_variant_new_double(y));
    std::string sourceURI = PageScripts::sourceURI(kClickScript);
    // Run as a user action: the click may open the page's file chooser.
    webkit_web_view_call_async_javascript_function(m_view, script.data(), static_cast<gssize>(script.size()),
        g_variant_builder_end(&arguments), nullptr, sourceURI.c_str(), m_cancellable.get(), nullptr, nullptr);
}

} // namespace orvane
