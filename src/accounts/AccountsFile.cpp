#include "AccountsFile.h"

#include <nlohmann/json.hpp>

namespace orvane {

namespace {

bool optionalUUID(const nlohmann::json& root, const char* key, std::optional<std::string>& out) {
    auto it = root.find(key);
    if (it == root.end() || it->is_null())
        return true;
    if (!it->is_string())
        return false;
    out = canonicalUUID(it->get_ref<const std::string&>());
    return out.has_value();
}

bool optionalBool(const nlohmann::json& root, const char* key, bool& out) {
    auto it = root.find(key);
    if (it == root.end() || it->is_null())
        return true;
    if (!it->is_boolean())
        return false;
    out = it->get<bool>();
    return true;
}

} // namespace

std::optional<AccountsFile> AccountsFile::decode(std::string_view bytes) {
    if (bytes.size() > kMaxBytes)
        return std::nullopt;
    nlohmann::json root = nlohmann::json::parse(bytes, nullptr, /*allow_exceptions*/ false);
    if (!root.is_object())
        return std::nullopt;
    auto list = root.find("accounts");
    if (list == root.end() || !list->is_array())
        return std::nullopt;
    AccountsFile file;
    for (const auto& element : *list) {
        if (auto account = Account::fromJSON(element))
            file.accounts.push_back(std::move(*account));
        else
            ++file.skippedRecords;
    }
    if (!optionalUUID(root, "selectedAccountID", file.selectedAccountID)
        || !optionalUUID(root, "defaultMailtoAccountID", file.defaultMailtoAccountID)
        || !optionalBool(root, "alwaysAskOnMailto", file.alwaysAskOnMailto)
        || !optionalBool(root, "showDockBadge", file.showDockBadge)
        || !optionalBool(root, "notificationsEnabled", file.notificationsEnabled))
        return std::nullopt;
    return file;
}

std::string AccountsFile::encode() const {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& account : accounts)
        list.push_back(account.toJSON());
    nlohmann::json root = { { "accounts", std::move(list) } };
    if (selectedAccountID)
        root["selectedAccountID"] = *selectedAccountID;
    if (defaultMailtoAccountID)
        root["defaultMailtoAccountID"] = *defaultMailtoAccountID;
    root["alwaysAskOnMailto"] = alwaysAskOnMailto;
    root["showDockBadge"] = showDockBadge;
    root["notificationsEnabled"] = notificationsEnabled;
    return root.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace orvane
