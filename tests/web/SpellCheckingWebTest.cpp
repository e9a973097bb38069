// Spell checking: the locale's languages as dictionaries are named, and of
// those the ones the spell checker has (hunspell-en-us, which
// tools/install-packages.sh installs).
#include "SpellChecking.h"

#include <gtest/gtest.h>
#include <webkit/webkit.h>

namespace orvane {
namespace {

using Strings = std::vector<std::string>;

TEST(SpellCheckingWebTest, TheLocalesLanguagesThatHaveADictionaryAreChecked) {
    const std::pair<std::vector<const char*>, Strings> cases[] = {
        { { "de_DE.UTF-8", "de_DE", "de.UTF-8", "de", "C", nullptr }, { "de_DE", "de" } },
        { { "sr_RS@latin", "sr_RS", "sr@latin", "POSIX", nullptr }, { "sr_RS", "sr" } },
        { { "C", "", nullptr }, {} },
    };
    for (const auto& [names, expected] : cases)
        EXPECT_EQ(SpellChecking::languages(names.data()), expected) << names[0];

    g_setenv("LANGUAGE", "xx_YY:en_US:en", TRUE);
    EXPECT_EQ(SpellChecking::apply(true), Strings { "en_US" });
    EXPECT_TRUE(webkit_web_context_get_spell_checking_enabled(webkit_web_context_get_default()));
    EXPECT_TRUE(SpellChecking::apply(false).empty());
    EXPECT_FALSE(webkit_web_context_get_spell_checking_enabled(webkit_web_context_get_default()));
}

} // namespace
} // namespace orvane
