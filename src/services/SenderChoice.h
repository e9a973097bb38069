#pragma once

#include "AccountStore.h"
#include "MailtoComponents.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// What the sender picker offers and what its keys choose, derived afresh from
// the store each time they are asked: the picker keeps no copy of accounts.
namespace SenderChoice {

// One digit key per offered account.
inline constexpr size_t kMaxOffered = 9;

// The first nine mail accounts, in list order.
std::vector<Account> pickable(const AccountStore& store);

// The account drawn as the default: the stored default sending account, else
// the last sender of this run, else the first mail account. Used unchanged,
// so it may name an account that is not offered or no longer exists.
std::optional<std::string> highlightedID(const AccountStore& store);

// Digit key k (1 to 9): the k-th offered account, nothing beyond the count.
std::optional<Account> forDigit(const AccountStore& store, int digit);
// Return: the highlighted account, looked up in the whole account list.
std::optional<Account> forReturn(const AccountStore& store);

// "To: a@b.c, d@e.f", or "To: New message" without recipients.
std::string recipientLine(const MailtoComponents& mailto);
// "Press 1–<count>  ·  Return = default  ·  Esc to cancel".
std::string hint(size_t offeredCount);

} // namespace SenderChoice

} // namespace orvane
