#pragma once

#include <gtk/gtk.h>

#include <string>

namespace orvane::DesktopFiles {

// Opens a local file with the desktop's default application for it, with
// `parent`'s launch context (may be null). Failures are logged.
void open(GtkWindow* parent, const std::string& path);

// Shows a local file selected in the desktop's file manager: the
// org.freedesktop.FileManager1 ShowItems call on the session bus, or, when
// no file manager answers it, the folder that holds the file opened with
// the default application (as it is when `parent` belongs to no
// application with a bus).
void showInFiles(GtkWindow* parent, const std::string& path);

// The bus names and the call, for the file manager a test plays.
constexpr const char* kFileManagerName = "org.freedesktop.FileManager1";
constexpr const char* kFileManagerPath = "/org/freedesktop/FileManager1";
constexpr const char* kFileManagerInterface = "org.freedesktop.FileManager1";

} // namespace orvane::DesktopFiles
