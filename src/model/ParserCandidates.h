#pragma once

// Internal to the parser: byte-level scans that find the few places where a
// pattern can match, so that the regular expressions run only there.
//
// Both scans start from the ":" that each form needs right after its
// extension or severity word; colons are rare in the long compiler command
// lines that make up most of a log, and memchr finds them quickly.

#include "ParserMatches.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// True when the text holds a character U+0000 to U+0003.
bool hasPieceSeparators(std::string_view utf8);
// A copy with each of those characters replaced by a line feed.
std::string withPieceSeparatorsAsLineFeeds(std::string_view utf8);

// Positions of every "." that may begin ".ext:" followed by a digit for one
// of the source extensions of the located form, ascending. A superset: any
// spot where a non-ASCII character could take part is included and left to
// the regular expression.
std::vector<int64_t> findExtensionCandidates(std::string_view utf8);

// Positions of every "error", "warning" or "note" (ASCII, any letter case)
// directly followed by ":", ascending. No other character folds into these
// words under case-insensitive matching, so the list is exact.
std::vector<int64_t> findSeverityWordCandidates(std::string_view utf8);

// Both lists above, from one pass over the text that also tells whether it
// holds piece separators; the lists are those of the text as it is.
struct Candidates {
    std::vector<int64_t> extensions;
    std::vector<int64_t> severityWords;
    bool hasPieceSeparators = false;
};
Candidates findCandidates(std::string_view utf8);

enum class TailOutcome { match, noMatch, undecided };

// What the located pattern from the "\\." of its path on does at `dot`,
// decided on ASCII bytes alone. Wherever a non-ASCII character could take
// part (fold into an extension or a severity word, be a Unicode digit or
// white space) the answer is `undecided`, for the regular expression to
// decide. A match fills every group but the whole and the path's start.
TailOutcome matchLocatedTailAscii(std::string_view utf8, int64_t dot, LocatedMatch& match);

} // namespace corvane
