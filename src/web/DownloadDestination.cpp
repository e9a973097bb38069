#include "DownloadDestination.h"

#include "DownloadsFolder.h"
#include "UniqueFile.h"
#include "HeapBox.h"

#include <optional>
#include <string>

namespace orvane::DownloadDestination {

namespace {

constexpr const char* kReservationKey = "orvane-download-reservation";
constexpr const char* kFallbackName = "download";

// What decide-destination created for one download; it lives on the download.
struct Reservation {
    std::optional<UniqueFile::Identity> file;
    bool decided = false;
    bool held = false;
    bool unplaced = false;
    std::optional<std::string> waitingName; // asked for while held
};

Reservation* reservationOf(WebKitDownload* download) {
    return static_cast<Reservation*>(g_object_get_data(G_OBJECT(download), kReservationKey));
}

std::optional<UniqueFile> reserveFile(const std::string& suggestedName) {
    auto folder = DownloadsFolder::path();
    if (!folder)
        return std::nullopt;
    return UniqueFile::create(*folder, suggestedName, kFallbackName, kPartialSuffix);
}

void decide(WebKitDownload* download, Reservation* reservation, const std::string& suggestedName) {
    reservation->decided = true;
    auto file = reserveFile(suggestedName);
    if (!file) {
        reservation->unplaced = true;
        webkit_download_cancel(download);
        return;
    }
    file->close();
    reservation->file = file->identity();
    // The destination is the empty file made for this download alone.
    webkit_download_set_allow_overwrite(download, TRUE);
    webkit_download_set_destination(download, file->path().c_str());
}

gboolean onDecideDestination(WebKitDownload* download, const char* suggestedName, gpointer) {
    Reservation* reservation = reservationOf(download);
    if (!reservation || reservation->decided || reservation->waitingName)
        return TRUE; // decided once already
    if (reservation->held) {
        // WebKit waits until a destination is set or the download cancelled.
        reservation->waitingName = suggestedName ? suggestedName : "";
        return TRUE;
    }
    decide(download, reservation, suggestedName ? suggestedName : "");
    return TRUE;
}

// A download that failed before WebKit wrote anything leaves the reserved,
// still empty file behind.
void removeLeftover(WebKitDownload* download) {
    Reservation* reservation = reservationOf(download);
    if (reservation && reservation->file)
        UniqueFile::removeIfUntouched(*reservation->file);
}

} // namespace

void adopt(WebKitDownload* download) {
    if (!download || reservationOf(download))
        return;
    g_object_set_data_full(G_OBJECT(download), kReservationKey, HeapBox::make<Reservation>(), HeapBox::free<Reservation>);
    g_signal_connect(download, "decide-destination", G_CALLBACK(onDecideDestination), nullptr);
    g_signal_connect(download, "failed", G_CALLBACK(+[](WebKitDownload* d, GError*, gpointer) {
        removeLeftover(d);
    }), nullptr);
}

void hold(WebKitDownload* download) {
    if (Reservation* reservation = download ? reservationOf(download) : nullptr)
        reservation->held = true;
}

void release(WebKitDownload* download) {
    Reservation* reservation = download ? reservationOf(download) : nullptr;
    if (!reservation || !reservation->held)
        return;
    reservation->held = false;
    if (reservation->waitingName && !reservation->decided)
        decide(download, reservation, *reservation->waitingName);
}

bool unplaced(WebKitDownload* download) {
    Reservation* reservation = download ? reservationOf(download) : nullptr;
    return reservation && reservation->unplaced;
}

} // namespace orvane::DownloadDestination
