#pragma once

#include <webkit/webkit.h>

namespace orvane::DownloadDestination {

// WebKit writes a download to "<destination>.wkdownload" first and renames it
// over the destination when it is complete.
constexpr const char* kPartialSuffix = ".wkdownload";

// Takes charge of where a WebKit download lands: its decide-destination
// picks a new file directly inside the user's Downloads folder (the
// suggested name made safe, numbered while taken, "download" when empty) and
// reserves it by creating it exclusively; a name whose partial file exists
// counts as taken. WebKit may then overwrite only that reserved file, so no
// existing file is ever overwritten and two downloads never share a name.
// Without a Downloads folder, or when no name can be reserved, the download
// is cancelled. A failed download leaves nothing behind. Adopting a download
// twice does nothing more.
void adopt(WebKitDownload* download);

// An adopted download that is held waits at decide-destination (WebKit
// transfers nothing meanwhile) until it is released or cancelled.
void hold(WebKitDownload* download);
void release(WebKitDownload* download);

// Whether Orvane cancelled the download for want of a place: no Downloads
// folder, or no name could be reserved there.
bool unplaced(WebKitDownload* download);

} // namespace orvane::DownloadDestination
