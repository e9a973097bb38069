#pragma once

#include <string>
#include <vector>

namespace orvane {

// Spell checking in every text field of every page. One web context serves
// all the accounts' views, so it is one switch for all of them.
namespace SpellChecking {

// The languages of a locale's names (g_get_language_names: "de_DE.UTF-8",
// "de_DE", "de", "C"), as the spell checker names dictionaries, most wanted
// first: without encodings and modifiers, "C" and "POSIX", or repeats.
std::vector<std::string> languages(const char* const* localeNames);

// Turns checking on or off in the user's locale's languages; WebKit keeps
// those it has a dictionary for. Returns the languages it kept.
std::vector<std::string> apply(bool on);

} // namespace SpellChecking

} // namespace orvane
