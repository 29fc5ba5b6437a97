#include "FullSearch.h"

#include "IcuMatching.h"
#include "ParserCandidates.h"
#include "ParserPatterns.h"

#include <algorithm>
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

QString slice(std::string_view text, ByteRange range)
{
    return QString::fromUtf8(text.data() + range.begin, qsizetype(range.end - range.begin));
}

// The records built step by step as the parser is defined, every group
// turned into a string first, so that the parser's shortcuts from the bytes
// are checked too. Ids and timestamps are left empty.
QList<BuildDiagnostic> recordsByDefinition(std::string_view text, const PassMatches& matches)
{
    QList<BuildDiagnostic> result;
    auto append = [&](BuildDiagnostic d) {
        for (const BuildDiagnostic& kept : result) {
            if (kept.signature() == d.signature())
                return;
        }
        result.append(std::move(d));
    };
    auto severityOf = [](const QString& word) { return severityFromRawValue(word).value_or(DiagnosticSeverity::note); };
    for (const LocatedMatch& m : matches.located) {
        if (!m.path.valid() || !m.line.valid() || !m.severity.valid() || !m.message.valid())
            continue;
        BuildDiagnostic d;
        d.filePath = slice(text, m.path);
        d.line = DiagnosticParser::readNumber(slice(text, m.line));
        const QString word = slice(text, m.severity).toLower();
        d.message = DiagnosticParser::cleanMessage(slice(text, m.message));
        if (m.column.valid() && !m.column.empty())
            d.column = DiagnosticParser::readNumber(slice(text, m.column));
        if (d.message.isEmpty())
            continue;
        d.severity = severityOf(word);
        d.rawText = *d.filePath + (d.line ? u':' + QString::number(*d.line) : QString())
            + (d.column ? u':' + QString::number(*d.column) : QString()) + u": " + word + u": " + d.message;
        append(std::move(d));
    }
    for (const SimpleMatch& m : matches.simple) {
        if (!m.severity.valid() || !m.message.valid())
            continue;
        BuildDiagnostic d;
        const QString word = slice(text, m.severity).toLower();
        d.message = DiagnosticParser::cleanMessage(slice(text, m.message));
        if (d.message.isEmpty())
            continue;
        d.severity = severityOf(word);
        const bool located = std::any_of(result.begin(), result.end(), [&](const BuildDiagnostic& kept) {
            return rawValue(kept.severity) == word && kept.message == d.message;
        });
        if (located)
            continue;
        d.rawText = word + u": " + d.message;
        append(std::move(d));
    }
    return result;
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
    return recordsByDefinition(utf8Text, matches);
}

} // namespace corvane
