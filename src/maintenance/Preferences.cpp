#include "Preferences.h"

#include "AppPaths.h"
#include "Files.h"
#include "GRef.h"

#include <glib.h>

#include <cmath>
#include <memory>

namespace orvane {

namespace {

struct KeyFileDeleter {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
using KeyFilePtr = std::unique_ptr<GKeyFile, KeyFileDeleter>;

enum class Loaded { Missing, Parsed, Unusable };

// Loads the file into `file`, keeping comments and translations so that a
// rewrite changes nothing but the key being set.
Loaded load(const std::string& path, GKeyFile* file) {
    if (!Files::exists(path))
        return Loaded::Missing;
    auto bytes = Files::read(path, Preferences::kMaxFileBytes);
    if (!bytes)
        return Loaded::Unusable;
    auto flags = static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
    if (!g_key_file_load_from_data(file, bytes->data(), bytes->size(), flags, nullptr))
        return Loaded::Unusable;
    return Loaded::Parsed;
}

} // namespace

std::string Preferences::defaultPath() {
    return AppPaths::configDir() + "/preferences.ini";
}

Preferences::Preferences(std::string path)
    : m_path(std::move(path)) {
}

std::optional<Preferences::Value> Preferences::fileValue(const std::string& key, bool wantNumber) const {
    KeyFilePtr file(g_key_file_new());
    if (load(m_path, file.get()) != Loaded::Parsed)
        return std::nullopt;
    GErrorPtr error;
    if (wantNumber) {
        double value = g_key_file_get_double(file.get(), kGroup, key.c_str(), GErrorOut(error));
        if (error)
            return std::nullopt;
        return value;
    }
    GCharPtr value(g_key_file_get_string(file.get(), kGroup, key.c_str(), GErrorOut(error)));
    if (!value)
        return std::nullopt;
    return std::string(value.get());
}

std::optional<std::string> Preferences::string(const std::string& key) const {
    std::optional<Value> value;
    if (auto it = m_setThisRun.find(key); it != m_setThisRun.end())
        value = it->second;
    else
        value = fileValue(key, false);
    if (!value || !std::holds_alternative<std::string>(*value))
        return std::nullopt;
    return std::get<std::string>(*value);
}

std::optional<double> Preferences::number(const std::string& key) const {
    std::optional<Value> value;
    if (auto it = m_setThisRun.find(key); it != m_setThisRun.end())
        value = it->second;
    else
        value = fileValue(key, true);
    if (!value || !std::holds_alternative<double>(*value) || !std::isfinite(std::get<double>(*value)))
        return std::nullopt;
    return std::get<double>(*value);
}

bool Preferences::setString(const std::string& key, const std::string& value) {
    return store(key, value);
}

bool Preferences::setNumber(const std::string& key, double value) {
    return store(key, value);
}

bool Preferences::store(const std::string& key, const Value& value) {
    m_setThisRun[key] = value;
    KeyFilePtr file(g_key_file_new());
    if (load(m_path, file.get()) == Loaded::Unusable) {
        g_warning("Not writing %s, which cannot be read: it stays as it is", m_path.c_str());
        return false;
    }
    if (auto* text = std::get_if<std::string>(&value)) {
        g_key_file_set_string(file.get(), kGroup, key.c_str(), text->c_str());
    } else {
        // Shortest text that reads back as the same double, in the C locale.
        char buffer[G_ASCII_DTOSTR_BUF_SIZE];
        g_key_file_set_value(file.get(), kGroup, key.c_str(), g_ascii_dtostr(buffer, sizeof buffer, std::get<double>(value)));
    }
    gsize length = 0;
    GCharPtr data(g_key_file_to_data(file.get(), &length, nullptr));
    return data && Files::replaceAtomically(m_path, std::string(data.get(), length));
}

} // namespace orvane
