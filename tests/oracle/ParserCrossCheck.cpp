#include "ParserCrossCheck.h"

#include "DiagnosticParser.h"
#include "FullSearch.h"
#include "ParserCandidates.h"

#include <algorithm>
#include <sstream>

namespace corvane {

namespace {

std::ostream& operator<<(std::ostream& out, const ByteRange& range)
{
    return out << '[' << range.begin << ',' << range.end << ')';
}

std::ostream& operator<<(std::ostream& out, const LocatedMatch& m)
{
    return out << "whole " << m.whole << " path " << m.path << " line " << m.line << " column " << m.column
               << " severity " << m.severity << " message " << m.message;
}

std::ostream& operator<<(std::ostream& out, const SimpleMatch& m)
{
    return out << "whole " << m.whole << " severity " << m.severity << " message " << m.message;
}

template <typename Match>
std::optional<std::string> compareMatches(const char* pass, const std::vector<Match>& fast,
                                          const std::vector<Match>& full)
{
    for (size_t i = 0; i < std::max(fast.size(), full.size()); ++i) {
        if (i < fast.size() && i < full.size() && fast[i] == full[i])
            continue;
        std::ostringstream out;
        out << pass << " match " << i << ": candidates ";
        if (i < fast.size())
            out << fast[i];
        else
            out << "(none)";
        out << "; full search ";
        if (i < full.size())
            out << full[i];
        else
            out << "(none)";
        return out.str();
    }
    return std::nullopt;
}

BuildDiagnostic withoutIdentity(BuildDiagnostic diagnostic)
{
    diagnostic.id = QUuid();
    diagnostic.timestamp = AbsoluteTime();
    return diagnostic;
}

std::optional<std::string> compareDiagnostics(const char* how, const QList<BuildDiagnostic>& found,
                                              const QList<BuildDiagnostic>& full)
{
    if (found.size() != full.size())
        return "diagnostics: " + std::to_string(found.size()) + ' ' + how + ", " + std::to_string(full.size())
            + " by full search";
    for (qsizetype i = 0; i < found.size(); ++i) {
        if (withoutIdentity(found[i]) != withoutIdentity(full[i]))
            return "diagnostic " + std::to_string(i) + ' ' + how + " differs: " + found[i].rawText.toStdString() + " / "
                + full[i].rawText.toStdString();
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> crossCheckParser(const DiagnosticParser& parser, std::string_view utf8Text)
{
    std::string copy;
    std::string_view text = utf8Text;
    if (hasPieceSeparators(text)) {
        copy = withPieceSeparatorsAsLineFeeds(text);
        text = copy;
    }
    if (auto difference = compareMatches("located", parser.locatedMatches(text), findLocatedByFullSearch(parser, text)))
        return difference;
    if (auto difference = compareMatches("simple", parser.simpleMatches(text), findSimpleByFullSearch(parser, text)))
        return difference;

    const QList<BuildDiagnostic> full = parseByFullSearch(parser, utf8Text);
    if (auto difference = compareDiagnostics("by candidates", parser.parse(utf8Text), full))
        return difference;

    // The text streamed in pieces of 1 to 7 bytes must give the same
    // diagnostics, whether each piece is searched where it lies, as large
    // pieces are (pieceSize 1), or gathered first, as small ones are.
    for (const size_t pieceSize : {1, 16}) {
        DiagnosticParser::Stream stream(parser, pieceSize);
        for (size_t at = 0, piece = 1; at < utf8Text.size(); at += piece, piece = piece % 7 + 1)
            stream.append(utf8Text.substr(at, piece));
        if (auto difference =
                compareDiagnostics(pieceSize == 1 ? "streamed" : "streamed and gathered", stream.finish(), full))
            return difference;
    }
    return std::nullopt;
}

} // namespace corvane
