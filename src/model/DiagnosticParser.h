#pragma once

#include "BuildDiagnostic.h"
#include "ParserMatches.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace corvane {

// Turns the text of a build log into diagnostics with two ICU regular
// expressions: a located form (absolute path, line, optional column) and a
// simple form (a severity word at the start of a line).
//
// The parser is an immutable value; copies share the compiled patterns and
// parse() may run on any thread.
class DiagnosticParser {
public:
    static constexpr std::u16string_view locationPattern =
        u"(?m)(/[^\\n\\r]+?\\.(?:swift|m|mm|h|hpp|c|cc|cpp|metal|storyboard|xib|intentdefinition|xcassets)):(\\d+)(?::(\\d+))?:\\s*(error|warning|note):\\s*([^\\n\\r]+)";
    static constexpr std::u16string_view simplePattern =
        u"(?m)(?:^|[\\n\\r])\\s*(error|warning|note):\\s*([^\\n\\r]+)";

    DiagnosticParser();

    // The log text is UTF-8, as the activity log reader and the import give it.
    QList<BuildDiagnostic> parse(std::string_view utf8Text) const;
    QList<BuildDiagnostic> parse(const QString& text) const;

    // The matches of each pass, as byte ranges into a text that is already
    // normalised (see withPieceSeparatorsAsLineFeeds). Empty when the
    // pattern did not compile.
    std::vector<LocatedMatch> locatedMatches(std::string_view normalisedUtf8) const;
    std::vector<SimpleMatch> simpleMatches(std::string_view normalisedUtf8) const;
    // The records of both passes' matches, in the parse's order and with its
    // de-duplication; any search that finds the same matches gives the same
    // records.
    static QList<BuildDiagnostic> diagnosticsFromMatches(std::string_view normalisedUtf8, const PassMatches& matches);

    // The compiled patterns (ParserPatterns.h), for tests that search with
    // them another way.
    struct Patterns;
    const Patterns& patterns() const { return *m_patterns; }

    // Tabs to spaces, runs of spaces to one, white space trimmed at both ends.
    static QString cleanMessage(QStringView captured);
    // A signed 64-bit decimal of ASCII digits, or nothing.
    static std::optional<qint64> readNumber(QStringView captured);

private:
    std::shared_ptr<const Patterns> m_patterns;
};

} // namespace corvane
