#pragma once

#include "accounts/AccountService.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace orvane {

// One web session of one service: a Gmail mailbox, the Google Calendar of a
// Gmail account, or an Outlook mailbox. A plain value; the AccountStore owns
// the list and everyone else refers to accounts by id.
struct Account {
    std::string id;          // canonical upper-case UUID
    std::string label;
    std::string dataStoreID; // canonical upper-case UUID of the website data store
    std::optional<std::string> avatarFileName;
    std::optional<std::string> avatarSourceURL;
    int64_t colorSeed = 0;
    std::optional<AccountService> service;

    // The kind that decides behaviour: an absent service means Gmail.
    AccountService effectiveService() const { return service.value_or(AccountService::Mail); }
    bool isCalendar() const { return service == AccountService::Calendar; }
    bool isMailSide() const { return !isCalendar(); }

    bool operator==(const Account&) const = default;

    nlohmann::json toJSON() const;
    // Strict: any missing required key, wrong type, bad UUID or unknown
    // service fails the whole record.
    static std::optional<Account> fromJSON(const nlohmann::json& object);
};

// UUID helpers: canonical upper-case text.
std::string newUUID();
// Accepts any letter case of the hyphenated form; gives the canonical text.
std::optional<std::string> canonicalUUID(std::string_view text);

} // namespace orvane
