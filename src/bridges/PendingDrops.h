#pragma once

#include <webkit/webkit.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// Files dropped on a web view for attachment, waiting for the page to ask for
// a file chooser. A drop sets the list of the view it landed on and a shared
// list, which a chooser raised by any view may take (a compose form in a
// pop-up window). Every drop counts up the token and keeps its files for its
// own expiry period: when that ends and no newer drop came, both lists are
// cleared; a view's list that no newer drop replaced is cleared at its own
// drop's expiry in any case, so old files never wait in a view for later.
// Only local paths are kept; nothing here opens or reads them.
// Main thread only.
class PendingDrops {
public:
    static constexpr std::chrono::milliseconds kExpiry { 8000 };

    explicit PendingDrops(std::chrono::milliseconds expiry = kExpiry);
    ~PendingDrops();
    PendingDrops(const PendingDrops&) = delete;
    PendingDrops& operator=(const PendingDrops&) = delete;

    // The lists Orvane's views and its file-chooser rule use.
    static PendingDrops& shared();

    // Records a drop of these paths on the view; returns the drop's token.
    uint64_t add(WebKitWebView* view, std::vector<std::string> paths);
    // Forgets the view's list and the shared list (an attach that failed).
    void clear(WebKitWebView* view);
    // The file-chooser rule: the view's list when it has one, else the shared
    // list. When that holds files, the view's and the shared list are cleared
    // and the files returned.
    std::optional<std::vector<std::string>> take(WebKitWebView* view);
    // Answers a page's file-chooser request with take(), at once and without
    // applying the request's own options. False when no files were waiting.
    bool answer(WebKitWebView* view, WebKitFileChooserRequest* request);

    std::optional<std::vector<std::string>> pending(WebKitWebView* view) const;
    const std::optional<std::vector<std::string>>& sharedPending() const { return m_shared; }
    uint64_t token() const { return m_token; }

private:
    struct ViewFiles;
    struct Expiry;

    ViewFiles* find(WebKitWebView* view) const;
    void expire(uint64_t token);
    void prune();

    // Owned references
    std::vector<std::unique_ptr<ViewFiles>> m_views;
    std::optional<std::vector<std::string>> m_shared;
    std::vector<guint> m_timers;
    uint64_t m_token = 0;
    std::chrono::milliseconds m_expiry;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true); // for the expiry timers
};

} // namespace orvane
