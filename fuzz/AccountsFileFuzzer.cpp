// accounts.json as read from disk: any bytes at all.

#include "AccountsFile.h"
#include "FileNames.h"
#include "FuzzCheck.h"

namespace {

using orvane::Account;
using orvane::AccountsFile;
using orvane::fuzz::isValidUTF8;

bool isCanonicalUUID(const std::string& text) {
    return orvane::canonicalUUID(text) == text;
}

void checkBounds(const AccountsFile& file) {
    for (const Account& account : file.accounts) {
        FUZZ_CHECK(isCanonicalUUID(account.id) && isCanonicalUUID(account.dataStoreID));
        FUZZ_CHECK(account.label.size() <= Account::kMaxLabelBytes && isValidUTF8(account.label));
        FUZZ_CHECK(!account.avatarSourceURL || account.avatarSourceURL->size() <= Account::kMaxPhotoAddressBytes);
        FUZZ_CHECK(!account.avatarFileName || orvane::FileNames::isPlainName(*account.avatarFileName));
        FUZZ_CHECK(account.bounded() == account);
    }
    FUZZ_CHECK(!file.selectedAccountID || isCanonicalUUID(*file.selectedAccountID));
    FUZZ_CHECK(!file.defaultMailtoAccountID || isCanonicalUUID(*file.defaultMailtoAccountID));
}

bool sameContent(const AccountsFile& a, const AccountsFile& b) {
    return a.accounts == b.accounts && a.selectedAccountID == b.selectedAccountID
        && a.defaultMailtoAccountID == b.defaultMailtoAccountID && a.alwaysAskOnMailto == b.alwaysAskOnMailto
        && a.showDockBadge == b.showDockBadge && a.notificationsEnabled == b.notificationsEnabled;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto decoded = AccountsFile::decode(orvane::fuzz::text(data, size));
    if (!decoded)
        return 0;
    checkBounds(*decoded);

    // What Orvane writes back reads as the same accounts and settings, with
    // nothing skipped, and writes out again byte for byte.
    std::string encoded = decoded->encode();
    auto again = AccountsFile::decode(encoded);
    FUZZ_CHECK(again.has_value());
    FUZZ_CHECK(again->skippedRecords == 0);
    FUZZ_CHECK(sameContent(*decoded, *again));
    FUZZ_CHECK(again->encode() == encoded);
    return 0;
}
