#pragma once

#include "Account.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// What accounts.json holds, and the one way it is read and written. Pure
// functions of their arguments: no files, no globals.
struct AccountsFile {
    std::vector<Account> accounts;
    std::optional<std::string> selectedAccountID;
    std::optional<std::string> defaultMailtoAccountID;
    bool alwaysAskOnMailto = true;
    bool showDockBadge = false;
    bool notificationsEnabled = false;
    // Records of the list that could not be read and were left out.
    size_t skippedRecords = 0;

    // Larger files are not read at all.
    static constexpr size_t kMaxBytes = 8 * 1024 * 1024;

    // Strict everywhere except inside "accounts", where a record that cannot
    // be read is skipped (and counted) on its own. Nothing for more than
    // kMaxBytes, text that is not a JSON object with an "accounts" list, or a
    // setting of the wrong type. Values are brought within Account's bounds.
    static std::optional<AccountsFile> decode(std::string_view bytes);
    // Compact JSON; invalid UTF-8 in a label is replaced rather than failing.
    std::string encode() const;
};

} // namespace orvane
