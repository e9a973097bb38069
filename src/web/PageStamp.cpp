#include "PageStamp.h"

#include "GRef.h"
#include "TrustedFolder.h"

#include <webkit/webkit.h>

#include <sys/random.h>

#include <charconv>
#include <cstdlib>

namespace orvane {

namespace {

constexpr size_t kKeyBytes = 32;
constexpr size_t kSignatureLength = 64; // SHA-256 in hex

// This run's key as lower-case hex; the extension uses the same text.
const std::string& key() {
    static const std::string text = [] {
        unsigned char bytes[kKeyBytes];
        size_t filled = 0;
        while (filled < kKeyBytes) {
            ssize_t got = getrandom(bytes + filled, kKeyBytes - filled, 0);
            if (got <= 0)
                break;
            filled += static_cast<size_t>(got);
        }
        // getrandom does not fail on Linux 3.17+; GLib's generator is a
        // last resort that still keeps pages from knowing the key.
        for (; filled < kKeyBytes; ++filled)
            bytes[filled] = static_cast<unsigned char>(g_random_int_range(0, 256));
        static const char digits[] = "0123456789abcdef";
        std::string hex;
        for (unsigned char byte : bytes) {
            hex += digits[byte >> 4];
            hex += digits[byte & 15];
        }
        return hex;
    }();
    return text;
}

// The extension signs exactly this text.
std::string signature(std::string_view message) {
    GCharPtr hmac(g_compute_hmac_for_string(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(key().data()),
        key().size(), message.data(), static_cast<gssize>(message.size())));
    return hmac ? std::string(hmac.get()) : std::string();
}

// Checked once: the folder is set for every web process from it.
const std::optional<std::string>& trustedExtensionDirectory() {
    static const std::optional<std::string> folder = PageStamp::extensionDirectory();
    return folder;
}

void onInitializeExtensions(WebKitWebContext* context, gpointer) {
    const auto& folder = trustedExtensionDirectory();
    if (!folder)
        return; // and no web process learns the key
    webkit_web_context_set_web_process_extensions_directory(context, folder->c_str());
    webkit_web_context_set_web_process_extensions_initialization_user_data(context, g_variant_new_string(key().c_str()));
}

} // namespace

std::optional<std::string> PageStamp::extensionDirectory() {
    GCharPtr executable(g_file_read_link("/proc/self/exe", nullptr));
    if (!executable) {
        g_warning("Running without the web-process extension: the program's own path cannot be read");
        return std::nullopt;
    }
    GCharPtr folder(g_path_get_dirname(executable.get()));
    GCharPtr candidate(g_build_filename(folder.get(), ORVANE_WEBEXT_RELATIVE_DIR, nullptr));
    if (auto problem = TrustedFolder::problem(candidate.get())) {
        g_warning("Running without the web-process extension from %s: %s", candidate.get(), problem->c_str());
        return std::nullopt;
    }
    char* resolved = realpath(candidate.get(), nullptr);
    if (!resolved)
        return std::nullopt;
    std::string path(resolved);
    free(resolved);
    return path;
}

void PageStamp::installExtension() {
    static bool installed = false;
    if (installed)
        return;
    installed = true;
    WebKitWebContext* context = webkit_web_context_get_default();
    // Also set at once: the sandbox of a web process is built from the folder
    // known before the signal runs, so without this the first process would
    // not see the extension.
    onInitializeExtensions(context, nullptr);
    g_signal_connect(context, "initialize-web-process-extensions", G_CALLBACK(onInitializeExtensions), nullptr);
}

std::string PageStamp::make(uint64_t pageID, std::string_view origin) {
    std::string message = std::to_string(pageID) + "." + std::string(origin);
    return message + "." + signature(message);
}

std::optional<PageStamp::Signed> PageStamp::verify(std::string_view stamp) {
    if (stamp.size() > kMaxLength || stamp.size() < kSignatureLength + 4)
        return std::nullopt;
    auto firstDot = stamp.find('.');
    size_t lastDot = stamp.size() - kSignatureLength - 1;
    if (firstDot == std::string_view::npos || firstDot == 0 || firstDot >= lastDot || stamp[lastDot] != '.')
        return std::nullopt;
    uint64_t pageID = 0;
    auto [end, error] = std::from_chars(stamp.data(), stamp.data() + firstDot, pageID);
    if (error != std::errc() || end != stamp.data() + firstDot || pageID == 0)
        return std::nullopt;
    std::string_view message = stamp.substr(0, lastDot);
    std::string expected = signature(message);
    std::string_view given = stamp.substr(lastDot + 1);
    if (expected.size() != given.size())
        return std::nullopt;
    // Compared in full whatever the first difference: no timing hint.
    unsigned char difference = 0;
    for (size_t i = 0; i < expected.size(); ++i)
        difference |= static_cast<unsigned char>(expected[i] ^ given[i]);
    if (difference)
        return std::nullopt;
    return Signed { pageID, std::string(stamp.substr(firstDot + 1, lastDot - firstDot - 1)) };
}

} // namespace orvane
