#include "SaveImageWebView.h"

#include "DownloadsFolder.h"
#include "ImageBytes.h"
#include "PageScripts.h"
#include "BridgeScripts.h"
#include "UniqueFile.h"
#include "NativeImageFetch.h"
#include "PageBridges.h"
#include "WebViewManager.h"
#include "HeapBox.h"
#include "WebHost.h"

#include <glib/gi18n-lib.h>

#include <cstring>
#include <memory>

namespace orvane {

namespace {

constexpr const char* kCompanionKey = "orvane-save-image-web-view";
// WebKit's own message catalogue, which holds its menu labels.
constexpr const char* kWebKitDomain = "WebKitGTK-6.0";
constexpr const char* kFallbackName = "image";
// A data URL of kMaxBytes of data, with room for its head.
constexpr size_t kMaxDataURLBytes = NativeImageFetch::kMaxBytes / 3 * 4 + 4 + 1024;

bool replaceFirst(WebKitContextMenu* menu, WebKitContextMenuAction stock, GSimpleAction* action,
    const std::string& label, const std::string& address) {
    guint position = 0;
    for (GList* item = webkit_context_menu_get_items(menu); item; item = item->next, ++position) {
        auto* menuItem = WEBKIT_CONTEXT_MENU_ITEM(item->data);
        if (webkit_context_menu_item_get_stock_action(menuItem) != stock)
            continue;
        WebKitContextMenuItem* replacement = webkit_context_menu_item_new_from_gaction(G_ACTION(action), label.c_str(),
            g_variant_new_string(address.c_str()));
        webkit_context_menu_remove(menu, menuItem);
        webkit_context_menu_insert(menu, replacement, static_cast<gint>(position));
        return true;
    }
    return false;
}

std::optional<std::string> addressOf(GVariant* parameter) {
    if (!parameter || !g_variant_is_of_type(parameter, G_VARIANT_TYPE_STRING))
        return std::nullopt;
    const char* text = g_variant_get_string(parameter, nullptr);
    return text && *text ? std::optional<std::string>(text) : std::nullopt;
}

bool isDownloadableScheme(const std::string& address) {
    const char* scheme = g_uri_peek_scheme(address.c_str()); // interned, lower case
    if (!scheme)
        return false;
    std::string_view s = scheme;
    return s == "http" || s == "https" || s == "data" || s == "blob";
}

} // namespace

// One image save in flight. It holds the view weakly: when the view goes, the
// save ends quietly.
struct SaveImageWebView::SaveTask {
    explicit SaveTask(WebKitWebView* view) { g_weak_ref_init(&viewRef, view); }
    ~SaveTask() { g_weak_ref_clear(&viewRef); }
    SaveTask(const SaveTask&) = delete;
    SaveTask& operator=(const SaveTask&) = delete;

    Ref<WebKitWebView> view() { return adopt(static_cast<WebKitWebView*>(g_weak_ref_get(&viewRef))); }

    GWeakRef viewRef;
    std::string src;
    SaveCompletion completion;
};

SaveImageWebView::SaveImageWebView(WebKitWebView* view, std::optional<AccountService> service, WebHost& host)
    : m_view(view)
    , m_host(host)
    , m_service(service)
    , m_saveImageAction(adopt(g_simple_action_new("orvane-save-image", G_VARIANT_TYPE_STRING)))
    , m_downloadLinkAction(adopt(g_simple_action_new("orvane-download-linked-file", G_VARIANT_TYPE_STRING)))
    , m_cancellable(adopt(g_cancellable_new())) {
    m_contextMenu = SignalConnection::connect(view, "context-menu", onContextMenu, this);
    m_saveImageActivated = SignalConnection::connect(m_saveImageAction.get(), "activate",
        +[](GSimpleAction*, GVariant* parameter, gpointer self) {
            static_cast<SaveImageWebView*>(self)->saveContextImage(addressOf(parameter));
        }, this);
    m_downloadLinkActivated = SignalConnection::connect(m_downloadLinkAction.get(), "activate",
        +[](GSimpleAction*, GVariant* parameter, gpointer self) {
            static_cast<SaveImageWebView*>(self)->downloadLinkedFile(addressOf(parameter));
        }, this);
}

SaveImageWebView::~SaveImageWebView() {
    g_cancellable_cancel(m_cancellable.get());
}

void SaveImageWebView::serve(WebViewManager& manager) {
    manager.setMessageReceiver(std::string(PageBridges::kContextImageHandler), [](WebKitWebView* sender, JSCValue* body) {
        if (SaveImageWebView* saving = sender ? of(sender) : nullptr)
            saving->receive(body);
    });
}

void SaveImageWebView::enable(WebKitWebView* view, std::optional<AccountService> service, WebHost& host) {
    if (!view || of(view))
        return;
    g_object_set_data_full(G_OBJECT(view), kCompanionKey, HeapBox::make<SaveImageWebView>(view, service, host),
        HeapBox::free<SaveImageWebView>);
}

SaveImageWebView* SaveImageWebView::of(WebKitWebView* view) {
    return view ? static_cast<SaveImageWebView*>(g_object_get_data(G_OBJECT(view), kCompanionKey)) : nullptr;
}

std::string SaveImageWebView::imageItemLabel() { return g_dgettext(kWebKitDomain, "Sa_ve Image As"); }
std::string SaveImageWebView::linkItemLabel() { return g_dgettext(kWebKitDomain, "_Download Linked File"); }

gboolean SaveImageWebView::onContextMenu(WebKitWebView*, WebKitContextMenu* menu, WebKitHitTestResult*, gpointer self) {
    static_cast<SaveImageWebView*>(self)->retarget(menu);
    return FALSE;
}

void SaveImageWebView::receive(JSCValue* body) {
    m_capturer.receive(body);
    m_reported = true;
    m_reportMenu = m_menus;
}

void SaveImageWebView::retarget(WebKitContextMenu* menu) {
    // The report of this right-click arrives before its menu (same connection).
    bool current = m_reported && m_reportMenu == m_menus;
    ++m_menus;
    if (!current)
        return;
    if (const auto& src = m_capturer.src(); src && !src->empty())
        replaceFirst(menu, WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_IMAGE_TO_DISK, m_saveImageAction.get(), imageItemLabel(), *src);
    if (const auto& link = m_capturer.linkSrc(); link && !link->empty())
        replaceFirst(menu, WEBKIT_CONTEXT_MENU_ACTION_DOWNLOAD_LINK_TO_DISK, m_downloadLinkAction.get(), linkItemLabel(), *link);
}

void SaveImageWebView::saveContextImage(const std::optional<std::string>& address) {
    std::optional<std::string> src = address ? address : m_capturer.src();
    if (src && !src->empty())
        save(*src);
}

void SaveImageWebView::downloadLinkedFile(const std::optional<std::string>& address) {
    std::optional<std::string> link = address ? address : m_capturer.linkSrc();
    if (!link || link->empty() || !g_uri_is_valid(link->c_str(), G_URI_FLAGS_NONE, nullptr)
        || !isDownloadableScheme(*link))
        return;
    // The download joins the account's session; its NavigationDelegate
    // adopts it and decides where it lands.
    Ref<WebKitDownload> download = adopt(webkit_web_view_download_uri(m_view, link->c_str()));
}

void SaveImageWebView::save(const std::string& src, SaveCompletion completion) {
    auto task = std::make_shared<SaveTask>(m_view);
    task->src = src;
    task->completion = std::move(completion);
    fetchInPage(std::move(task));
}

void SaveImageWebView::fetchInPage(std::shared_ptr<SaveTask> task) {
    Ref<WebKitWebView> view = task->view();
    SaveImageWebView* self = of(view.get());
    if (!self)
        return;
    std::string_view body = BridgeScripts::text(kFetchScript);
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&arguments, "{sv}", "src", g_variant_new_string(task->src.c_str()));
    g_variant_builder_add(&arguments, "{sv}", "maxBytes", g_variant_new_double(double(NativeImageFetch::kMaxBytes)));
    std::string sourceURI = PageScripts::sourceURI(kFetchScript);
    webkit_web_view_call_async_javascript_function(view.get(), body.data(), static_cast<gssize>(body.size()),
        g_variant_builder_end(&arguments), nullptr, sourceURI.c_str(), self->m_cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::shared_ptr<SaveTask> task = *HeapBox::take<std::shared_ptr<SaveTask>>(data);
            GErrorPtr error;
            Ref<JSCValue> value = adopt(webkit_web_view_call_async_javascript_function_finish(WEBKIT_WEB_VIEW(source),
                result, GErrorOut(error)));
            if (isCancelled(error.get()))
                return;
            std::optional<ImageBytes::Decoded> decoded;
            if (value && jsc_value_is_string(value.get())) {
                GCharPtr text(jsc_value_to_string(value.get()));
                if (text && strlen(text.get()) <= kMaxDataURLBytes)
                    decoded = ImageBytes::fromDataURL(text.get());
            }
            if (!decoded) {
                fetchNative(std::move(task));
                return;
            }
            finishSave(task, decoded->data, kFallbackName + ImageBytes::extension(decoded->meta, decoded->data));
        },
        HeapBox::make<std::shared_ptr<SaveTask>>(std::move(task)));
}

void SaveImageWebView::fetchNative(std::shared_ptr<SaveTask> task) {
    Ref<WebKitWebView> view = task->view();
    SaveImageWebView* self = of(view.get());
    if (!self)
        return;
    const char* agent = webkit_settings_get_user_agent(webkit_web_view_get_settings(view.get()));
    NativeImageFetch::start(webkit_web_view_get_network_session(view.get()), task->src, agent ? agent : "",
        self->m_cancellable.get(), [task](std::optional<NativeImageFetch::Result> fetched) {
            if (!fetched) {
                finishSave(task, {}, {});
                return;
            }
            finishSave(task, fetched->data, fetched->name);
        });
}

void SaveImageWebView::finishSave(const std::shared_ptr<SaveTask>& task, std::string_view data, const std::string& name) {
    Ref<WebKitWebView> view = task->view();
    if (!view || !of(view.get()))
        return;
    std::optional<std::string> path;
    if (!data.empty())
        path = write(data, name);
    WebHost& host = of(view.get())->m_host;
    if (path) {
        host.fileSaved(*path, view.get());
    } else {
        gtk_widget_error_bell(GTK_WIDGET(view.get()));
        host.reportFailure(data.empty() ? _("Could not save the image: it could not be fetched")
                : !DownloadsFolder::path() ? _("Could not save the image: there is no Downloads folder")
                                           : _("Could not save the image: the file could not be written"),
            view.get());
    }
    if (task->completion)
        task->completion(path);
}

std::optional<std::string> SaveImageWebView::write(std::string_view data, const std::string& suggestedName) {
    auto folder = DownloadsFolder::path();
    if (!folder)
        return std::nullopt;
    auto file = UniqueFile::create(*folder, suggestedName, kFallbackName);
    if (!file || !file->write(data))
        return std::nullopt;
    return file->path();
}

} // namespace orvane
