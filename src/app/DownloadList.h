#pragma once

#include "GRef.h"
#include "Observers.h"
#include "SignalConnection.h"

#include <webkit/webkit.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// The downloads of this run that the window shows: those running and those
// ended since the list was last cleared, oldest first, at most kMaxItems
// (the oldest ended ones go first). Main thread only.
class DownloadList {
public:
    enum class State { Running, Finished, Failed };
    struct Item {
        uint64_t id = 0;
        std::string name; // for display; the file's own name once it has one
        std::string path; // the file, once WebKit made it
        double progress = 0; // 0 to 1
        State state = State::Running;
    };

    static constexpr size_t kMaxItems = 20;

    // Follows a download's name and progress from now on.
    void started(WebKitDownload* download);
    // The download ended: complete at `path`, or not (empty path). Its item,
    // if it was followed.
    std::optional<Item> ended(WebKitDownload* download, const std::string& path);
    // A file saved into Downloads without a WebKit download (an image).
    void saved(const std::string& path);
    // Forgets the ended items.
    void clearEnded();

    const std::vector<Item>& items() const { return m_items; }
    bool running() const;
    // The running items' progress together, 0 to 1.
    double progress() const;

    // Called after every change.
    Observers<> changed;

private:
    struct Follow {
        uint64_t id;
        Ref<WebKitDownload> download;
        std::vector<SignalConnection> connections;
    };
    Item* itemOf(WebKitDownload* download);
    void add(Item item);
    std::optional<Item> end(uint64_t id, const std::string& path);

    std::vector<Item> m_items;
    std::vector<std::unique_ptr<Follow>> m_follows; // of the running items
    uint64_t m_lastID = 0;
};

} // namespace orvane
