#include "Preferences.h"

#include "AppPaths.h"
#include "Files.h"
#include "GRef.h"

#include <glib.h>

#include <cmath>
#include <functional>
#include <memory>

namespace orvane {

namespace {

struct KeyFileDeleter {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
using KeyFilePtr = std::unique_ptr<GKeyFile, KeyFileDeleter>;

struct StrvDeleter {
    void operator()(char** strings) const { g_strfreev(strings); }
};
using StrvPtr = std::unique_ptr<char*, StrvDeleter>;

// The file's text parsed, keeping comments and translations so that a
// rewrite changes nothing but the key being set; null when it cannot be.
KeyFilePtr parsed(std::string_view bytes) {
    if (bytes.size() > Preferences::kMaxFileBytes)
        return nullptr;
    KeyFilePtr file(g_key_file_new());
    auto flags = static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
    if (!g_key_file_load_from_data(file.get(), bytes.empty() ? "" : bytes.data(), bytes.size(), flags, nullptr))
        return nullptr;
    return file;
}

// The file's text: empty when there is no file, nothing when it cannot be read.
std::optional<std::string> fileText(const std::string& path) {
    if (!Files::exists(path))
        return std::string();
    return Files::read(path, Preferences::kMaxFileBytes);
}

// A change to the parsed file; false when it changed nothing.
using Change = std::function<bool(GKeyFile*)>;

// The text after the change: the same text when it changed nothing, nothing
// when the text cannot be parsed or written out again.
std::optional<std::string> edited(std::string_view bytes, const Change& change) {
    KeyFilePtr file = parsed(bytes);
    if (!file)
        return std::nullopt;
    if (!change(file.get()))
        return std::string(bytes);
    gsize length = 0;
    GCharPtr data(g_key_file_to_data(file.get(), &length, nullptr));
    if (!data)
        return std::nullopt;
    return std::string(data.get(), length);
}

// Applies the change to the file on disk, which is replaced only when its
// text changes. A file that cannot be read is never written over.
bool rewrite(const std::string& path, const Change& change) {
    auto text = fileText(path);
    auto updated = text ? edited(*text, change) : std::nullopt;
    if (!updated) {
        g_warning("Not writing %s, which cannot be read: it stays as it is", path.c_str());
        return false;
    }
    return *updated == *text || Files::replaceAtomically(path, *updated);
}

Change setting(const std::string& key, const Preferences::Value& value) {
    return [&key, &value](GKeyFile* file) {
        if (auto* text = std::get_if<std::string>(&value)) {
            g_key_file_set_string(file, Preferences::kGroup, key.c_str(), text->c_str());
        } else {
            // Shortest text that reads back as the same double, in the C locale.
            char buffer[G_ASCII_DTOSTR_BUF_SIZE];
            g_key_file_set_value(file, Preferences::kGroup, key.c_str(),
                g_ascii_dtostr(buffer, sizeof buffer, std::get<double>(value)));
        }
        return true;
    };
}

} // namespace

std::string Preferences::defaultPath() {
    return AppPaths::configDir() + "/preferences.ini";
}

Preferences::Preferences(std::string path)
    : m_path(std::move(path)) {
}

std::optional<Preferences::Values> Preferences::parse(std::string_view bytes) {
    KeyFilePtr file = parsed(bytes);
    if (!file)
        return std::nullopt;
    Values values;
    StrvPtr keys(g_key_file_get_keys(file.get(), kGroup, nullptr, nullptr));
    for (char** key = keys.get(); key && *key; ++key) {
        if (GCharPtr text { g_key_file_get_string(file.get(), kGroup, *key, nullptr) })
            values.strings[*key] = text.get();
        GErrorPtr error;
        double number = g_key_file_get_double(file.get(), kGroup, *key, GErrorOut(error));
        if (!error && std::isfinite(number))
            values.numbers[*key] = number;
    }
    return values;
}

std::optional<std::string> Preferences::withValue(std::string_view bytes, const std::string& key, const Value& value) {
    return edited(bytes, setting(key, value));
}

std::optional<Preferences::Values> Preferences::fileValues() const {
    auto text = fileText(m_path);
    return text ? parse(*text) : std::nullopt;
}

std::optional<std::string> Preferences::string(const std::string& key) const {
    std::optional<Value> value;
    if (auto it = m_setThisRun.find(key); it != m_setThisRun.end())
        value = it->second;
    else if (auto values = fileValues(); values && values->strings.contains(key))
        value = values->strings.at(key);
    if (!value || !std::holds_alternative<std::string>(*value))
        return std::nullopt;
    return std::get<std::string>(*value);
}

std::optional<double> Preferences::number(const std::string& key) const {
    std::optional<Value> value;
    if (auto it = m_setThisRun.find(key); it != m_setThisRun.end())
        value = it->second;
    else if (auto values = fileValues(); values && values->numbers.contains(key))
        value = values->numbers.at(key);
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

bool Preferences::removeKeys(const std::function<bool(const std::string& key)>& which) {
    std::erase_if(m_setThisRun, [&](const auto& entry) { return which(entry.first); });
    return rewrite(m_path, [&](GKeyFile* file) {
        bool removed = false;
        StrvPtr keys(g_key_file_get_keys(file, kGroup, nullptr, nullptr));
        for (char** key = keys.get(); key && *key; ++key) {
            if (which(*key))
                removed = g_key_file_remove_key(file, kGroup, *key, nullptr) || removed;
        }
        return removed;
    });
}

bool Preferences::store(const std::string& key, const Value& value) {
    m_setThisRun[key] = value;
    return rewrite(m_path, setting(key, value));
}

} // namespace orvane
