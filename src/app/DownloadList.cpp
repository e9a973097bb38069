#include "DownloadList.h"

#include <glib/gi18n-lib.h>

#include <algorithm>

namespace orvane {

namespace {

// A name from a server is shown, not used as a path: its last part,
// valid UTF-8, within bounds.
constexpr glong kMaxNameChars = 120;

std::string displayName(const char* name) {
    if (!name || !*name)
        return _("File");
    GCharPtr base(g_path_get_basename(name));
    GCharPtr valid(g_utf8_make_valid(base.get(), -1));
    GCharPtr bounded(g_utf8_substring(valid.get(), 0, std::min(g_utf8_strlen(valid.get(), -1), kMaxNameChars)));
    return bounded.get();
}

std::string nameOfFile(const std::string& path) {
    GCharPtr name(g_filename_display_basename(path.c_str()));
    return name.get();
}

} // namespace

DownloadList::Item* DownloadList::itemOf(WebKitDownload* download) {
    auto follow = std::ranges::find_if(m_follows, [&](const auto& f) { return f->download.get() == download; });
    if (follow == m_follows.end())
        return nullptr;
    auto item = std::ranges::find(m_items, (*follow)->id, &Item::id);
    return item == m_items.end() ? nullptr : &*item;
}

void DownloadList::add(Item item) {
    m_items.push_back(std::move(item));
    while (m_items.size() > kMaxItems) {
        auto oldest = std::ranges::find_if(m_items, [](const Item& i) { return i.state != State::Running; });
        if (oldest == m_items.end())
            break;
        m_items.erase(oldest);
    }
    changed.notify();
}

void DownloadList::started(WebKitDownload* download) {
    if (!download || itemOf(download))
        return;
    uint64_t id = ++m_lastID;
    auto follow = std::make_unique<Follow>(id, Ref<WebKitDownload>(download));
    WebKitURIRequest* request = webkit_download_get_request(download);
    GUri* address = request ? g_uri_parse(webkit_uri_request_get_uri(request), G_URI_FLAGS_NONE, nullptr) : nullptr;
    GCharPtr fromAddress(address ? g_uri_unescape_string(g_uri_get_path(address), nullptr) : nullptr);
    if (address)
        g_uri_unref(address);
    follow->connections.push_back(SignalConnection::connect(download, "notify::estimated-progress",
        +[](WebKitDownload* d, GParamSpec*, gpointer self) {
            auto* list = static_cast<DownloadList*>(self);
            Item* item = list->itemOf(d);
            double progress = webkit_download_get_estimated_progress(d);
            // Whole percents are enough for the eye.
            if (item && item->state == State::Running && progress - item->progress >= 0.01) {
                item->progress = progress;
                list->changed.notify();
            }
        }, this));
    follow->connections.push_back(SignalConnection::connect(download, "created-destination",
        +[](WebKitDownload* d, const char* destination, gpointer self) {
            auto* list = static_cast<DownloadList*>(self);
            if (Item* item = list->itemOf(d); item && destination) {
                item->path = destination;
                item->name = nameOfFile(destination);
                list->changed.notify();
            }
        }, this));
    // A download whose end nobody reported (its account went) ends here.
    follow->connections.push_back(SignalConnection::connect(download, "finished",
        +[](WebKitDownload* d, gpointer self) { static_cast<DownloadList*>(self)->ended(d, {}); }, this));
    m_follows.push_back(std::move(follow));
    add({ id, displayName(fromAddress.get()), {}, 0, State::Running });
}

std::optional<DownloadList::Item> DownloadList::ended(WebKitDownload* download, const std::string& path) {
    auto follow = std::ranges::find_if(m_follows, [&](const auto& f) { return f->download.get() == download; });
    if (follow == m_follows.end())
        return std::nullopt;
    uint64_t id = (*follow)->id;
    // GObject lets a handler disconnect itself while it runs.
    auto done = std::move(*follow);
    m_follows.erase(follow);
    return end(id, path);
}

std::optional<DownloadList::Item> DownloadList::end(uint64_t id, const std::string& path) {
    auto item = std::ranges::find(m_items, id, &Item::id);
    if (item == m_items.end())
        return std::nullopt;
    item->state = path.empty() ? State::Failed : State::Finished;
    item->progress = path.empty() ? item->progress : 1;
    if (!path.empty()) {
        item->path = path;
        item->name = nameOfFile(path);
    }
    Item copy = *item;
    changed.notify();
    return copy;
}

void DownloadList::saved(const std::string& path) {
    add({ ++m_lastID, nameOfFile(path), path, 1, State::Finished });
}

void DownloadList::clearEnded() {
    auto ended = std::ranges::remove_if(m_items, [](const Item& i) { return i.state != State::Running; });
    if (ended.empty())
        return;
    m_items.erase(ended.begin(), ended.end());
    changed.notify();
}

bool DownloadList::running() const {
    return std::ranges::any_of(m_items, [](const Item& i) { return i.state == State::Running; });
}

double DownloadList::progress() const {
    double sum = 0;
    int count = 0;
    for (const Item& item : m_items) {
        if (item.state == State::Running) {
            sum += item.progress;
            ++count;
        }
    }
    return count ? sum / count : 1;
}

} // namespace orvane
