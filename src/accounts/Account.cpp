#include "Account.h"

#include "FileNames.h"
#include "GRef.h"

#include <glib.h>
#include <nlohmann/json.hpp>

namespace orvane {

std::string newUUID() {
    GCharPtr uuid(g_uuid_string_random());
    GCharPtr upper(g_ascii_strup(uuid.get(), -1));
    return upper.get();
}

std::optional<std::string> canonicalUUID(std::string_view text) {
    std::string copy(text);
    if (copy.size() != 36 || !g_uuid_string_is_valid(copy.c_str()))
        return std::nullopt;
    GCharPtr upper(g_ascii_strup(copy.c_str(), -1));
    return std::string(upper.get());
}

std::string Account::boundedLabel(std::string_view label) {
    GCharPtr valid(g_utf8_make_valid(label.data(), static_cast<gssize>(label.size())));
    return FileNames::truncatedUTF8(valid.get(), kMaxLabelBytes);
}

Account Account::bounded() const {
    Account account = *this;
    account.label = boundedLabel(label);
    if (account.avatarSourceURL && account.avatarSourceURL->size() > kMaxPhotoAddressBytes)
        account.avatarSourceURL.reset();
    if (account.avatarFileName && !FileNames::isPlainName(*account.avatarFileName))
        account.avatarFileName.reset();
    return account;
}

nlohmann::json Account::toJSON() const {
    nlohmann::json object = {
        { "id", id },
        { "label", label },
        { "dataStoreID", dataStoreID },
    };
    if (avatarFileName)
        object["avatarFileName"] = *avatarFileName;
    if (avatarSourceURL)
        object["avatarSourceURL"] = *avatarSourceURL;
    object["colorSeed"] = colorSeed;
    if (service)
        object["service"] = std::string(rawValue(*service));
    return object;
}

static std::optional<std::string> requiredUUID(const nlohmann::json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_string())
        return std::nullopt;
    return canonicalUUID(it->get_ref<const std::string&>());
}

// Absent or null → no value; a string → the value; anything else fails.
static bool optionalString(const nlohmann::json& object, const char* key, std::optional<std::string>& out) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null())
        return true;
    if (!it->is_string())
        return false;
    out = it->get<std::string>();
    return true;
}

std::optional<Account> Account::fromJSON(const nlohmann::json& object) {
    if (!object.is_object())
        return std::nullopt;
    Account account;

    auto id = requiredUUID(object, "id");
    auto dataStoreID = requiredUUID(object, "dataStoreID");
    if (!id || !dataStoreID)
        return std::nullopt;
    account.id = *id;
    account.dataStoreID = *dataStoreID;

    auto label = object.find("label");
    if (label == object.end() || !label->is_string())
        return std::nullopt;
    account.label = label->get<std::string>();

    // A JSON integer that fits a signed 64-bit value; 2.0 or "2" do not count.
    auto seed = object.find("colorSeed");
    if (seed == object.end() || !seed->is_number_integer())
        return std::nullopt;
    if (seed->is_number_unsigned() && seed->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX))
        return std::nullopt;
    account.colorSeed = seed->get<int64_t>();

    if (!optionalString(object, "avatarFileName", account.avatarFileName)
        || !optionalString(object, "avatarSourceURL", account.avatarSourceURL))
        return std::nullopt;

    std::optional<std::string> service;
    if (!optionalString(object, "service", service))
        return std::nullopt;
    if (service) {
        account.service = accountServiceFromRaw(*service);
        if (!account.service)
            return std::nullopt;
    }
    // The one place names read from disk are checked: a bad one is absent.
    return account.bounded();
}

} // namespace orvane
