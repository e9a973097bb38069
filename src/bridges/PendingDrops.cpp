#include "PendingDrops.h"

#include "GRef.h"
#include "HeapBox.h"

#include <algorithm>

namespace orvane {

// The files of the last drop on one view; the view is held weakly.
struct PendingDrops::ViewFiles {
    ViewFiles(WebKitWebView* view, std::vector<std::string> paths, uint64_t token)
        : paths(std::move(paths)), token(token) {
        g_weak_ref_init(&this->view, view);
    }
    ~ViewFiles() { g_weak_ref_clear(&view); }
    ViewFiles(const ViewFiles&) = delete;
    ViewFiles& operator=(const ViewFiles&) = delete;

    bool holds(WebKitWebView* candidate) {
        Ref<GObject> current = adopt(static_cast<GObject*>(g_weak_ref_get(&view)));
        return current && current.get() == G_OBJECT(candidate);
    }
    bool isGone() {
        Ref<GObject> current = adopt(static_cast<GObject*>(g_weak_ref_get(&view)));
        return !current;
    }

    GWeakRef view;
    std::vector<std::string> paths;
    uint64_t token;
};

// What an expiry timer needs; the lists are held weakly.
struct PendingDrops::Expiry {
    PendingDrops* owner; // valid while `alive` holds
    Lifetime::Watch alive;
    uint64_t token;
    guint id = 0;
};

PendingDrops::PendingDrops(std::chrono::milliseconds expiry)
    : m_expiry(expiry) {
}

PendingDrops::~PendingDrops() {
    m_lifetime.end();
    for (guint id : m_timers)
        g_source_remove(id);
}

PendingDrops::ViewFiles* PendingDrops::find(WebKitWebView* view) const {
    if (!view)
        return nullptr;
    for (const auto& files : m_views) {
        if (files->holds(view))
            return files.get();
    }
    return nullptr;
}

void PendingDrops::prune() {
    std::erase_if(m_views, [](const std::unique_ptr<ViewFiles>& files) { return files->isGone(); });
}

uint64_t PendingDrops::add(WebKitWebView* view, std::vector<std::string> paths) {
    prune();
    uint64_t token = ++m_token;
    if (ViewFiles* files = find(view)) {
        files->paths = std::move(paths);
        files->token = token;
    } else if (view) {
        m_views.push_back(std::make_unique<ViewFiles>(view, std::move(paths), token));
    }

    auto* expiry = HeapBox::make<Expiry>(Expiry { this, m_lifetime.watch(), token });
    guint interval = static_cast<guint>(std::clamp<int64_t>(m_expiry.count(), 0, G_MAXUINT));
    expiry->id = g_timeout_add_full(G_PRIORITY_DEFAULT, interval, +[](gpointer data) -> gboolean {
        auto* expiry = static_cast<Expiry*>(data);
        if (expiry->alive.alive()) {
            std::erase(expiry->owner->m_timers, expiry->id);
            expiry->owner->expire(expiry->token);
        }
        return G_SOURCE_REMOVE;
    }, expiry, HeapBox::free<Expiry>);
    m_timers.push_back(expiry->id);
    return token;
}

void PendingDrops::expire(uint64_t token) {
    std::erase_if(m_views, [token](const std::unique_ptr<ViewFiles>& files) { return files->token == token; });
}

void PendingDrops::clear(WebKitWebView* view) {
    if (ViewFiles* files = find(view))
        std::erase_if(m_views, [files](const std::unique_ptr<ViewFiles>& entry) { return entry.get() == files; });
}

std::optional<std::vector<std::string>> PendingDrops::pending(WebKitWebView* view) const {
    if (ViewFiles* files = find(view))
        return files->paths;
    return std::nullopt;
}

std::optional<std::vector<std::string>> PendingDrops::take(WebKitWebView* view, WebKitWebView* owner) {
    for (WebKitWebView* site : { view, owner }) {
        std::optional<std::vector<std::string>> files = pending(site);
        if (files && !files->empty()) {
            clear(site);
            return files;
        }
    }
    return std::nullopt;
}

bool PendingDrops::waiting(WebKitWebView* view, WebKitWebView* owner) const {
    for (WebKitWebView* site : { view, owner })
        if (ViewFiles* files = find(site); files && !files->paths.empty())
            return true;
    return false;
}

bool PendingDrops::answer(WebKitWebView* view, WebKitWebView* owner, WebKitFileChooserRequest* request) {
    if (!request)
        return false;
    auto files = take(view, owner);
    if (!files)
        return false;
    // An input that takes one file gets one, as a chooser would give it.
    if (!webkit_file_chooser_request_get_select_multiple(request))
        files->resize(1);
    std::vector<const char*> paths;
    paths.reserve(files->size() + 1);
    for (const auto& path : *files)
        paths.push_back(path.c_str());
    paths.push_back(nullptr);
    webkit_file_chooser_request_select_files(request, paths.data());
    return true;
}

} // namespace orvane
