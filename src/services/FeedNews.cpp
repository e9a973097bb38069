#include "FeedNews.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace orvane {

std::string FeedNews::primaryFeedAddress(std::string_view feedAddress) {
    while (!feedAddress.empty() && feedAddress.back() == '/')
        feedAddress.remove_suffix(1);
    return std::string(feedAddress) + "/^sq_ig_i_personal";
}

namespace {

struct URIDeleter {
    void operator()(GUri* uri) const { g_uri_unref(uri); }
};
using URIPtr = std::unique_ptr<GUri, URIDeleter>;

URIPtr parsed(const std::string& address) {
    URIPtr uri(g_uri_parse(address.c_str(), G_URI_FLAGS_ENCODED, nullptr));
    return uri && g_uri_get_host(uri.get()) ? std::move(uri) : nullptr;
}

} // namespace

std::string FeedNews::mailboxFeedAddress(const std::string& feedAddress, const std::string& pageAddress) {
    constexpr std::string_view users = "/mail/u/";
    URIPtr feed = parsed(feedAddress);
    URIPtr page = parsed(pageAddress);
    if (!feed || !page || g_ascii_strcasecmp(g_uri_get_host(feed.get()), g_uri_get_host(page.get()))
        || !g_str_has_prefix(g_uri_get_path(feed.get()), "/mail/u/0/"))
        return feedAddress;
    std::string_view path = g_uri_get_path(page.get());
    if (!path.starts_with(users))
        return feedAddress;
    std::string_view number = path.substr(users.size(), path.find('/', users.size()) - users.size());
    if (number.empty() || number.size() > 2 || !std::ranges::all_of(number, [](char c) { return g_ascii_isdigit(c); }))
        return feedAddress;
    // The path follows the authority, which holds no "/": the first match is the path's start.
    std::string address = feedAddress;
    size_t at = address.find("/mail/u/0/");
    return at == std::string::npos ? address : address.replace(at, 10, std::string(users) + std::string(number) + "/");
}

void FeedNews::decide(const Reading& reading) {
    if (m_inbox != Inbox::Unknown || !reading.inbox || !(reading.primary || reading.primaryRefused))
        return;
    // The page's count says something about the first round only.
    std::optional<int64_t> page = std::exchange(m_pageCount, std::nullopt);
    if (reading.primaryRefused) {
        m_inbox = Inbox::Plain;
        return;
    }
    if (!page || !reading.primary || reading.primary->fullcount == reading.inbox->fullcount)
        return;
    if (*page == reading.primary->fullcount)
        m_inbox = Inbox::Categories;
    else if (*page == reading.inbox->fullcount)
        m_inbox = Inbox::Plain;
}

FeedNews::News FeedNews::read(const Reading& reading) {
    if (!m_hasBaseline)
        decide(reading);
    const AtomFeed* countFeed = nullptr;
    const AtomFeed* entryFeed = nullptr;
    switch (m_inbox) {
    case Inbox::Plain:
        countFeed = entryFeed = reading.inbox ? &*reading.inbox : nullptr;
        break;
    case Inbox::Categories:
        countFeed = entryFeed = reading.primary ? &*reading.primary : nullptr;
        break;
    case Inbox::Unknown:
        if (reading.inbox && reading.primary) {
            countFeed = &*reading.inbox;
            entryFeed = &*reading.primary;
        }
        break;
    }
    if (!countFeed || !entryFeed)
        return {};
    return { countFeed->fullcount, fresh(entryFeed->entries) };
}

std::vector<AtomFeed::Entry> FeedNews::fresh(const std::vector<AtomFeed::Entry>& entries) {
    std::vector<AtomFeed::Entry> news;
    int64_t oldestNews = m_newest > kLateSlackSeconds ? m_newest - kLateSlackSeconds : 0;
    for (const auto& entry : entries) {
        if (m_hasBaseline && !m_seen.contains(entry.id) && (!entry.time() || entry.time() >= oldestNews))
            news.push_back(entry);
    }
    for (const auto& entry : entries) {
        remember(entry.id);
        m_newest = std::max(m_newest, entry.time());
    }
    m_hasBaseline = true;
    std::stable_sort(news.begin(), news.end(), [](const auto& a, const auto& b) { return a.time() > b.time(); });
    if (news.size() > kMaxNotified)
        news.resize(kMaxNotified);
    return news;
}

void FeedNews::remember(const std::string& id) {
    if (!m_seen.insert(id).second)
        return;
    m_seenOrder.push_back(id);
    if (m_seenOrder.size() > kMaxRemembered) {
        m_seen.erase(m_seenOrder.front());
        m_seenOrder.pop_front();
    }
}

} // namespace orvane
