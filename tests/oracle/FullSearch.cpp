#include "FullSearch.h"

#include "IcuMatching.h"
#include "ParserCandidates.h"
#include "ParserPatterns.h"

#include <string>

namespace corvane {

namespace {

// Runs the pattern over the whole text and hands each match to the callback.
template <typename Callback>
void forEachMatch(const icu::RegexPattern* pattern, std::string_view utf8, Callback&& callback)
{
    if (!pattern)
        return;
    UTextHandle text = openUtf8(utf8);
    if (!text)
        return;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(status));
    if (U_FAILURE(status))
        return;
    matcher->reset(text.get());
    while (matcher->find(status) && U_SUCCESS(status))
        callback(*matcher);
}

} // namespace

std::vector<LocatedMatch> findLocatedByFullSearch(const DiagnosticParser& parser, std::string_view utf8)
{
    std::vector<LocatedMatch> matches;
    forEachMatch(parser.patterns().location.get(), utf8,
                 [&](icu::RegexMatcher& m) { matches.push_back(locatedGroups(m)); });
    return matches;
}

std::vector<SimpleMatch> findSimpleByFullSearch(const DiagnosticParser& parser, std::string_view utf8)
{
    std::vector<SimpleMatch> matches;
    forEachMatch(parser.patterns().simple.get(), utf8,
                 [&](icu::RegexMatcher& m) { matches.push_back(simpleGroups(m)); });
    return matches;
}

QList<BuildDiagnostic> parseByFullSearch(const DiagnosticParser& parser, std::string_view utf8Text)
{
    std::string copy;
    if (hasPieceSeparators(utf8Text)) {
        copy = withPieceSeparatorsAsLineFeeds(utf8Text);
        utf8Text = copy;
    }
    PassMatches matches;
    matches.located = findLocatedByFullSearch(parser, utf8Text);
    matches.simple = findSimpleByFullSearch(parser, utf8Text);
    return DiagnosticParser::diagnosticsFromMatches(utf8Text, matches);
}

} // namespace corvane
