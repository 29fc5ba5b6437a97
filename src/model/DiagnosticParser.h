#pragma once

#include "BuildDiagnostic.h"
#include "ParserMatches.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

class ParserRecords;

// Turns the text of a build log into diagnostics with two ICU regular
// expressions: a located form (absolute path, line, optional column) and a
// simple form (a severity word at the start of a line).
//
// The parser is an immutable value; copies share the compiled patterns and
// parse() may run on any thread. A large text is searched on one thread per
// processor at once, the calling thread among them.
class DiagnosticParser {
public:
    static constexpr std::u16string_view locationPattern =
        u"(?m)(/[^\\n\\r]+?\\.(?:swift|m|mm|h|hpp|c|cc|cpp|metal|storyboard|xib|intentdefinition|xcassets)):(\\d+)(?::(\\d+))?:\\s*(error|warning|note):\\s*([^\\n\\r]+)";
    static constexpr std::u16string_view simplePattern = u"(?m)(?:^|[\\n\\r])\\s*(error|warning|note):\\s*([^\\n\\r]+)";

    // The compiled patterns (ParserPatterns.h).
    struct Patterns;

    DiagnosticParser();

    // The log text is UTF-8, as the activity log reader and the import give it.
    QList<BuildDiagnostic> parse(std::string_view utf8Text) const;
    QList<BuildDiagnostic> parse(const QString& text) const;

    // Parses a log that arrives in pieces, giving what parse() gives for the
    // whole text, while holding only the text since the last line break that
    // no match can run across.
    class Stream {
    public:
        // Small pieces are gathered until pieceSize bytes are held and a cut
        // is possible; a piece of pieceSize or more is searched where it
        // lies. Searching smaller amounts at a time costs more.
        explicit Stream(const DiagnosticParser& parser, std::size_t pieceSize = 256 * 1024);
        ~Stream();
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;

        void append(std::string_view utf8);
        // The diagnostics of everything appended; the stream starts afresh.
        QList<BuildDiagnostic> finish();

        // Where the text may be cut: just after the last line break at or
        // after `from` that no match of either pattern can run across, or 0
        // when there is none.
        static std::size_t lastSafeCut(std::string_view utf8, std::size_t from = 0);

    private:
        // Searches the held text up to its last cut; false when it has none.
        bool searchHeldText();

        std::shared_ptr<const Patterns> m_patterns;
        std::unique_ptr<ParserRecords> m_records;
        std::size_t m_pieceSize;
        std::string m_pending;
        // m_pending has no safe cut before this offset.
        std::size_t m_searchedUpTo = 0;
    };

    // The matches of each pass, as byte ranges into a text that is already
    // normalised (see withPieceSeparatorsAsLineFeeds). Empty when the
    // pattern did not compile.
    std::vector<LocatedMatch> locatedMatches(std::string_view normalisedUtf8) const;
    std::vector<SimpleMatch> simpleMatches(std::string_view normalisedUtf8) const;
    // The records of both passes' matches, in the parse's order and with its
    // de-duplication; any search that finds the same matches gives the same
    // records.
    static QList<BuildDiagnostic> diagnosticsFromMatches(std::string_view normalisedUtf8, const PassMatches& matches);

    // The compiled patterns, for tests that search with them another way.
    const Patterns& patterns() const { return *m_patterns; }

    // Tabs to spaces, runs of spaces to one, white space trimmed at both ends.
    static QString cleanMessage(QStringView captured);
    // A signed 64-bit decimal of ASCII digits, or nothing.
    static std::optional<qint64> readNumber(QStringView captured);

private:
    static void addMatches(const Patterns& patterns, std::string_view utf8Text, ParserRecords& records);
    static void addMatchesInParts(const Patterns& patterns, std::string_view utf8Text, ParserRecords& records);
    // The text in consecutive parts to be searched at once.
    static std::vector<std::string_view> partsOf(std::string_view utf8Text);

    std::shared_ptr<const Patterns> m_patterns;
};

} // namespace corvane
