#pragma once

// Internal to the parser and its tests: UTF-8 text as ICU reads it, and the
// capture groups of an ICU match as byte ranges into that text.

#include "ParserMatches.h"

#include <memory>
#include <string_view>

#include <unicode/utext.h>
#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexMatcher;
U_NAMESPACE_END

namespace corvane {

struct UTextCloser {
    void operator()(UText* text) const { utext_close(text); }
};
using UTextHandle = std::unique_ptr<UText, UTextCloser>;

// A view of the bytes, without a copy; null when ICU refuses them.
UTextHandle openUtf8(std::string_view utf8);

LocatedMatch locatedGroups(icu::RegexMatcher& matcher);
SimpleMatch simpleGroups(icu::RegexMatcher& matcher);

} // namespace corvane
