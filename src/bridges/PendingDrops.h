#pragma once

#include "Lifetime.h"
#include <webkit/webkit.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// Files dropped on a web view for attachment, waiting for the page to ask for
// a file chooser. A drop replaces the list of the view it landed on; the list
// is kept for that drop's expiry period, unless a newer drop on the same view
// replaced it or a chooser took it. A chooser takes the files of its own
// view, else those of the view it belongs to (the account's main view, for a
// pop-up): never those of another view, so files dropped on one account
// never reach another account's page. Only local paths are kept; nothing here
// opens or reads them. One per WebViewManager. Main thread only.
class PendingDrops {
public:
    static constexpr std::chrono::milliseconds kExpiry { 8000 };

    explicit PendingDrops(std::chrono::milliseconds expiry = kExpiry);
    ~PendingDrops();
    PendingDrops(const PendingDrops&) = delete;
    PendingDrops& operator=(const PendingDrops&) = delete;

    // Records a drop of these paths on the view; returns the drop's token.
    uint64_t add(WebKitWebView* view, std::vector<std::string> paths);
    // Forgets the view's list (an attach that failed).
    void clear(WebKitWebView* view);
    // The file-chooser rule: the files waiting for `view`, else those waiting
    // for `owner` (null for a main view). The list taken is cleared.
    std::optional<std::vector<std::string>> take(WebKitWebView* view, WebKitWebView* owner);
    // Whether take() would find files.
    bool waiting(WebKitWebView* view, WebKitWebView* owner) const;
    // Answers a page's file-chooser request with take(): every file when the
    // request allows several, else the first one only. The request's type
    // filter is not applied. False when no files were waiting.
    bool answer(WebKitWebView* view, WebKitWebView* owner, WebKitFileChooserRequest* request);

    std::optional<std::vector<std::string>> pending(WebKitWebView* view) const;
    uint64_t token() const { return m_token; }

private:
    struct ViewFiles;
    struct Expiry;

    ViewFiles* find(WebKitWebView* view) const;
    void expire(uint64_t token);
    void prune();

    // Owned references
    std::vector<std::unique_ptr<ViewFiles>> m_views;
    std::vector<guint> m_timers;
    uint64_t m_token = 0;
    std::chrono::milliseconds m_expiry;
    Lifetime m_lifetime; // for the expiry timers
};

} // namespace orvane
