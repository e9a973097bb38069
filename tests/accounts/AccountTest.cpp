#include "Account.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvane {
namespace {

using nlohmann::json;

json validRecord() {
    return json::parse(R"({"id":"0f6e2b9c-3c1d-4b7a-9e55-2a8d6c1f4b10","label":"New Account",
        "dataStoreID":"7A3E9D21-5B64-4C0F-8F12-9D3B6E4A2C71","colorSeed":211})");
}

TEST(Account, RecordsReadBackAsWrittenWithAnAbsentServiceStayingAbsent) {
    auto plain = Account::fromJSON(validRecord());
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->id, "0F6E2B9C-3C1D-4B7A-9E55-2A8D6C1F4B10") << "ids are kept in canonical upper case";
    EXPECT_FALSE(plain->service);
    EXPECT_EQ(plain->effectiveService(), AccountService::Mail);
    EXPECT_FALSE(plain->toJSON().contains("service"));
    EXPECT_FALSE(plain->toJSON().contains("avatarFileName"));

    json record = validRecord();
    record.update({ { "service", "calendar" }, { "avatarFileName", nullptr }, { "avatarSourceURL", "https://example.com/p.png" },
        { "colorSeed", -400 }, { "somethingNew", { 1, 2 } } });
    auto calendar = Account::fromJSON(record);
    ASSERT_TRUE(calendar);
    EXPECT_TRUE(calendar->isCalendar());
    EXPECT_FALSE(calendar->avatarFileName) << "null reads as absent";
    EXPECT_EQ(calendar->toJSON()["service"], "calendar");
    Account full = *calendar;
    full.avatarFileName = "X.png";
    EXPECT_EQ(Account::fromJSON(full.toJSON()), full);
}

TEST(Account, RecordsBreakingARequiredRuleAreRefused) {
    const json changes[] = {
        { { "service", "exchange" } }, { { "service", 1 } }, { { "colorSeed", "211" } }, { { "colorSeed", 2.5 } },
        { { "colorSeed", json::parse("18446744073709551615") } }, { { "id", "0F6E2B9C3C1D4B7A9E552A8D6C1F4B10" } },
        { { "dataStoreID", 7 } }, { { "label", nullptr } }, { { "avatarFileName", 3 } },
    };
    for (const auto& change : changes) {
        json record = validRecord();
        record.update(change);
        EXPECT_FALSE(Account::fromJSON(record)) << change;
    }
    for (const char* required : { "id", "label", "dataStoreID", "colorSeed" }) {
        json record = validRecord();
        record.erase(required);
        EXPECT_FALSE(Account::fromJSON(record)) << required;
    }
}

} // namespace
} // namespace orvane
