#pragma once

// Internal to the parser: the two ways of finding every match of a pattern.
// Both give the matches of a plain left-to-right search without overlap;
// the candidate search runs the regular expressions only where the
// byte-level scans of ParserCandidates.h say a match can start.

#include "ParserMatches.h"

#include <string_view>
#include <vector>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace corvane {

// The plain search over the whole text: the definition of the result. Its
// cost grows with the square of the line length for the located pattern.
std::vector<LocatedMatch> findLocatedByFullSearch(const icu::RegexPattern& pattern, std::string_view utf8);
std::vector<SimpleMatch> findSimpleByFullSearch(const icu::RegexPattern& pattern, std::string_view utf8);

// The same matches, found by anchored matching at candidate places only.
// `locationTail` is the located pattern from the "\." of its path on, with
// the same groups after the path.
std::vector<LocatedMatch> findLocatedAtCandidates(const icu::RegexPattern& location,
                                                  const icu::RegexPattern& locationTail, std::string_view utf8);
std::vector<SimpleMatch> findSimpleAtCandidates(const icu::RegexPattern& simple, std::string_view utf8);

} // namespace corvane
