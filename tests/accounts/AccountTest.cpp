#include "Account.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvane {
namespace {

using nlohmann::json;

json validRecord() {
    return json::parse(R"({"id":"0F6E2B9C-3C1D-4B7A-9E55-2A8D6C1F4B10","label":"New Account",
        "dataStoreID":"7A3E9D21-5B64-4C0F-8F12-9D3B6E4A2C71","colorSeed":211})");
}

TEST(Account, DecodesRecordsWithAndWithoutServiceAndWritesThemBackTheSameWay) {
    auto plain = Account::fromJSON(validRecord());
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->service);
    EXPECT_EQ(plain->effectiveService(), AccountService::Mail);
    EXPECT_TRUE(plain->isMailSide());
    EXPECT_FALSE(plain->toJSON().contains("service")) << "an absent service stays absent";
    EXPECT_FALSE(plain->toJSON().contains("avatarFileName"));

    auto record = validRecord();
    record["service"] = "calendar";
    record["avatarFileName"] = nullptr;
    record["avatarSourceURL"] = "https://example.com/p.png";
    record["somethingNew"] = { 1, 2 };
    auto calendar = Account::fromJSON(record);
    ASSERT_TRUE(calendar);
    EXPECT_EQ(calendar->service, AccountService::Calendar);
    EXPECT_TRUE(calendar->isCalendar());
    EXPECT_FALSE(calendar->avatarFileName) << "null reads as absent";
    EXPECT_EQ(calendar->avatarSourceURL, "https://example.com/p.png");
    EXPECT_EQ(calendar->toJSON()["service"], "calendar");

    // Lower-case UUIDs are read and written back in canonical upper case.
    record = validRecord();
    record["id"] = "0f6e2b9c-3c1d-4b7a-9e55-2a8d6c1f4b10";
    auto lower = Account::fromJSON(record);
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->id, "0F6E2B9C-3C1D-4B7A-9E55-2A8D6C1F4B10");

    // A round trip keeps every field.
    Account full = *calendar;
    full.avatarFileName = "X.png";
    full.colorSeed = -5;
    EXPECT_EQ(Account::fromJSON(full.toJSON()), full);
}

TEST(Account, RejectsRecordsThatBreakAnyRequiredRule) {
    auto broken = [](auto mutate) {
        auto record = validRecord();
        mutate(record);
        return !Account::fromJSON(record).has_value();
    };
    EXPECT_TRUE(broken([](json& r) { r["service"] = "exchange"; }));
    EXPECT_TRUE(broken([](json& r) { r["service"] = ""; }));
    EXPECT_TRUE(broken([](json& r) { r["service"] = 1; }));
    EXPECT_TRUE(broken([](json& r) { r["colorSeed"] = "211"; }));
    EXPECT_TRUE(broken([](json& r) { r["colorSeed"] = 2.5; }));
    EXPECT_TRUE(broken([](json& r) { r["colorSeed"] = nullptr; }));
    EXPECT_TRUE(broken([](json& r) { r["colorSeed"] = json::parse("18446744073709551615"); }));
    EXPECT_TRUE(broken([](json& r) { r["id"] = "not-a-uuid"; }));
    EXPECT_TRUE(broken([](json& r) { r["id"] = "0F6E2B9C3C1D4B7A9E552A8D6C1F4B10"; }));
    EXPECT_TRUE(broken([](json& r) { r["dataStoreID"] = 7; }));
    EXPECT_TRUE(broken([](json& r) { r.erase("label"); }));
    EXPECT_TRUE(broken([](json& r) { r["label"] = nullptr; }));
    EXPECT_TRUE(broken([](json& r) { r.erase("colorSeed"); }));
    EXPECT_TRUE(broken([](json& r) { r["avatarFileName"] = 3; }));
    EXPECT_TRUE(broken([](json& r) { r = json::array(); }));
    EXPECT_FALSE(broken([](json& r) { r["colorSeed"] = -400; }));
}

TEST(Account, EqualityComparesEveryFieldWhileIdentityIsTheID) {
    auto a = *Account::fromJSON(validRecord());
    auto b = a;
    EXPECT_EQ(a, b);
    b.colorSeed = 7;
    EXPECT_NE(a, b);
    EXPECT_EQ(a.id, b.id);
    b = a;
    b.service = AccountService::Mail; // "mail" and absent behave alike but are different records
    EXPECT_NE(a, b);
    EXPECT_EQ(a.effectiveService(), b.effectiveService());
}

} // namespace
} // namespace orvane
