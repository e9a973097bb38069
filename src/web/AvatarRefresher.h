#pragma once

#include "Lifetime.h"
#include "GRef.h"
#include "Observers.h"

#include <webkit/webkit.h>

#include <memory>
#include <set>
#include <string>

namespace orvane {

class WebViewManager;

// Keeps each account's photo file in step with the photo its web client
// shows. After a page load the manager calls refresh(): the service's photo
// script finds the photo in the page, and only when that photo differs from
// the recorded one (or its file is gone) is it fetched, checked to be an
// image, written to the avatars folder and recorded on every account sharing
// the data store. Failures change nothing and are retried on the next load.
// Owned by the manager; main thread only.
class AvatarRefresher {
public:
    // How one refresh ended.
    enum class Outcome {
        Skipped,   // nothing to do: no store or account, no photo script or photo, or the same fetch already running
        Unchanged, // the recorded file already holds this photo
        Stored,    // a new file was written and recorded
        Failed,    // bad data (address, HTTP status, network, an image that does not decode) or a failed write
    };
    using FinishedObservers = Observers<const std::string& /* account id */, Outcome>;

    explicit AvatarRefresher(const WebViewManager& manager);
    // Cancels the fetches in flight; their results are dropped.
    ~AvatarRefresher();
    AvatarRefresher(const AvatarRefresher&) = delete;
    AvatarRefresher& operator=(const AvatarRefresher&) = delete;

    // Asks the account's main view for its photo (once the main loop is idle,
    // so that a title that came with the load is handled first) and stores it
    // when it changed.
    void refresh(const std::string& accountID, WebKitWebView* view);

    // Tells of every refresh as it ends, with its outcome.
    [[nodiscard]] FinishedObservers::Subscription observeFinished(FinishedObservers::Callback callback) {
        return m_finished.add(std::move(callback));
    }

    // Side limit of a stored photo, as the avatar tile draws nothing larger.
    static constexpr int kMaxPhotoSide = 4096;
    // Whether the bytes decode as an image of at most kMaxPhotoSide a side.
    static bool isImage(const std::string& bytes);

private:
    struct DeferredProbe;

    void probe(const std::string& accountID, WebKitWebView* view);
    void photoFound(const std::string& accountID, const std::string& photo);
    void download(const std::string& photo, const std::string& identity, const std::string& accountID);
    void persist(const std::string& bytes, const std::string& identity, const std::string& accountID);
    void finish(const std::string& accountID, Outcome outcome) { m_finished.notify(accountID, outcome); }

    // Borrowed references
    const WebViewManager& m_manager; // owns this object

    // Owned references
    Ref<GCancellable> m_cancellable;
    std::set<std::string> m_fetching; // account id + "\n" + identity of fetches in flight
    FinishedObservers m_finished;
    Lifetime m_lifetime; // for deferred work
};

} // namespace orvane
