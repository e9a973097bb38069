#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Readers of the page titles the providers show. They never fail: a title
// they cannot read gives nothing (or 0 where noted).
namespace orvane::TitleParsers {

// "Inbox (12) - a@b.c - Gmail" → 12. Titles that do not start with "inbox"
// (any case, no trimming) → nothing; an inbox title without a readable count → 0.
std::optional<int64_t> gmailInboxUnread(const std::optional<std::string>& title);

// The first piece of the title (split at space , ; – — |) holding "@" and "."
// and not starting with "@".
std::optional<std::string> gmailEmail(const std::optional<std::string>& title);

// "Mail - Display Name - Outlook" → "Display Name". Titles that are not valid
// UTF-8 → nothing.
std::optional<std::string> outlookName(const std::optional<std::string>& title);

} // namespace orvane::TitleParsers
