#include "Autostart.h"

#include "AppPaths.h"
#include "Files.h"
#include "GRef.h"

#include <glib.h>
#include <glib/gi18n-lib.h>

#include <algorithm>

namespace orvane::Autostart {

namespace {

constexpr const char* kEntryName = "app.orvane.Orvane.desktop";

std::string folder() { return AppPaths::configHome() + "/autostart"; }

// One Exec argument: inside double quotes, the four characters the desktop
// entry rules reserve take a backslash; then the key file's own escaping
// doubles every backslash, and '%' (a field code) is doubled.
std::string quotedArgument(const std::string& argument) {
    std::string quoted = "\"";
    for (char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    quoted += '"';
    std::string escaped;
    for (char c : quoted) {
        if (c == '\\')
            escaped += "\\\\";
        else if (c == '%')
            escaped += "%%";
        else
            escaped += c;
    }
    return escaped;
}

} // namespace

std::string entryPath() { return folder() + "/" + kEntryName; }

std::optional<std::string> entryText(const std::string& executable) {
    bool control = std::any_of(executable.begin(), executable.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
    if (executable.empty() || executable.front() != '/' || control || !g_utf8_validate(executable.data(), executable.size(), nullptr))
        return std::nullopt;
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Orvane\n"
           "Comment=" + std::string(_("Keeps your accounts' notifications and unread counts from login on")) + "\n"
           "Icon=app.orvane.Orvane\n"
           "Exec=" + quotedArgument(executable) + " --" + kBackgroundOption + "\n"
           "X-GNOME-Autostart-enabled=true\n";
}

bool enable(const std::string& executable) {
    auto text = entryText(executable);
    return text && Files::makeFolder(folder()) && Files::replaceAtomically(entryPath(), *text);
}

bool disable() {
    Files::removeFile(folder(), kEntryName);
    return !g_file_test(entryPath().c_str(), G_FILE_TEST_IS_REGULAR);
}

std::string currentExecutable() {
    GCharPtr path(g_file_read_link("/proc/self/exe", nullptr));
    return path ? path.get() : "";
}

bool isSandboxed() { return g_file_test("/.flatpak-info", G_FILE_TEST_EXISTS); }

} // namespace orvane::Autostart
