#pragma once

// The plain left-to-right search of the whole text with the parser's own
// patterns: what ICU itself returns, and so the definition of the parser's
// result. Its cost grows with the square of the line length for the located
// pattern, so only tests and fuzzers use it, on short texts.

#include "DiagnosticParser.h"
#include "ParserMatches.h"

#include <string_view>
#include <vector>

namespace corvane {

// Matches in a normalised text (see withPieceSeparatorsAsLineFeeds); empty
// when the pattern did not compile.
std::vector<LocatedMatch> findLocatedByFullSearch(const DiagnosticParser& parser, std::string_view normalisedUtf8);
std::vector<SimpleMatch> findSimpleByFullSearch(const DiagnosticParser& parser, std::string_view normalisedUtf8);

// What parse() must return for the text, ids and timestamps aside.
QList<BuildDiagnostic> parseByFullSearch(const DiagnosticParser& parser, std::string_view utf8Text);

} // namespace corvane
