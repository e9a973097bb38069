#pragma once

#include <optional>
#include <string_view>

namespace orvane {

// The kind of web service an account uses. Stored as "mail", "calendar" or
// "outlook"; an account without a kind is a Gmail mailbox, exactly like mail.
enum class AccountService { Mail, Calendar, Outlook };

std::string_view rawValue(AccountService service);
std::optional<AccountService> accountServiceFromRaw(std::string_view raw);

} // namespace orvane
