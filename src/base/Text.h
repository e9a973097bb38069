#pragma once

#include <glib.h>

#include <string_view>

namespace orvane::Text {

// Which characters a trim drops.
using CharacterTest = bool (*)(gunichar c);

bool isSpaceOrTab(gunichar c);
// Space, tab, line feed, vertical tab, form feed and carriage return.
bool isASCIISpace(gunichar c);

// The text without the characters at its ends that `drop` accepts, read as
// UTF-8 character by character. A byte that is not part of valid UTF-8 is
// never dropped, so a trim stops there.
std::string_view trimmed(std::string_view text, CharacterTest drop);
std::string_view trimmedEnd(std::string_view text, CharacterTest drop);

} // namespace orvane::Text
