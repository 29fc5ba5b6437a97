#pragma once

// Internal to the parser: every match of a pattern, as a plain left-to-right
// search without overlap would find them, with the regular expressions run
// only where the byte-level scans of ParserCandidates.h say a match can
// start.

#include "ParserMatches.h"

#include <string_view>
#include <vector>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace corvane {

// `locationTail` is the located pattern from the "\." of its path on, with
// the same groups after the path.
std::vector<LocatedMatch> findLocatedAtCandidates(const icu::RegexPattern& location,
                                                  const icu::RegexPattern& locationTail, std::string_view utf8);
std::vector<SimpleMatch> findSimpleAtCandidates(const icu::RegexPattern& simple, std::string_view utf8);

// The same searches from candidates already found (see findCandidates).
std::vector<LocatedMatch> findLocatedAtCandidates(const icu::RegexPattern& location,
                                                  const icu::RegexPattern& locationTail, std::string_view utf8,
                                                  const std::vector<int64_t>& extensionCandidates);
std::vector<SimpleMatch> findSimpleAtCandidates(const icu::RegexPattern& simple, std::string_view utf8,
                                                const std::vector<int64_t>& severityWordCandidates);

} // namespace corvane
