#pragma once

#include "AccountService.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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

    // Bounds on what pages and files put into an account. A label comes from
    // page titles, the photo address from the page and the photo file name
    // from the file: none of them may grow the accounts file without end.
    static constexpr size_t kMaxLabelBytes = 512;
    static constexpr size_t kMaxPhotoAddressBytes = 2048;

    // The label as stored: invalid UTF-8 repaired, cut to kMaxLabelBytes at
    // a character boundary.
    static std::string boundedLabel(std::string_view label);
    // This account within the bounds: the label as boundedLabel() makes it,
    // a photo address over kMaxPhotoAddressBytes dropped, and a photo file
    // name that is not one plain file name (FileNames::isPlainName) dropped.
    Account bounded() const;

    nlohmann::json toJSON() const;
    // Strict: any missing required key, wrong type, bad UUID or unknown
    // service fails the whole record. Values out of bounds are brought within
    // them (see bounded()) rather than failing it.
    static std::optional<Account> fromJSON(const nlohmann::json& object);
};

// UUID helpers: canonical upper-case text.
std::string newUUID();
// Accepts any letter case of the hyphenated form; gives the canonical text.
std::optional<std::string> canonicalUUID(std::string_view text);

} // namespace orvane
