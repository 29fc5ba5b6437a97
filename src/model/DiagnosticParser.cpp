#include "DiagnosticParser.h"

#include "ParserCandidates.h"
#include "ParserPatterns.h"
#include "ParserRecords.h"
#include "ParserSearch.h"
#include "StartBeside.h"

#include <QThread>

#include <unicode/regex.h>
#include <unicode/utext.h>

#include <algorithm>
#include <future>
#include <limits>
#include <string>
#include <utility>

namespace corvane {

namespace {

std::unique_ptr<icu::RegexPattern> compile(std::u16string_view pattern)
{
    if (pattern.empty())
        return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    const icu::UnicodeString source(false, pattern.data(), int32_t(pattern.size()));
    std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(source, UREGEX_CASE_INSENSITIVE, parseError, status));
    if (U_FAILURE(status))
        return nullptr;
    return compiled;
}

// "(/[^\n\r]+?\.(?:exts)):(\d+)..." without the path's lazy start and
// without the path group's closing parenthesis: "\.(?:exts):(\d+)...".
std::u16string locationTailPattern(std::u16string_view location)
{
    const std::u16string_view head = u"(?m)(/[^\\n\\r]+?";
    const std::u16string_view extensionsEnd = u"))";
    if (location.substr(0, head.size()) != head)
        return {};
    const std::u16string_view rest = location.substr(head.size());
    const size_t close = rest.find(extensionsEnd);
    if (close == std::u16string_view::npos)
        return {};
    std::u16string tail(rest.substr(0, close + 1));
    tail += rest.substr(close + 2);
    return tail;
}

} // namespace

QList<BuildDiagnostic> DiagnosticParser::diagnosticsFromMatches(std::string_view text, const PassMatches& matches)
{
    ParserRecords records(matches.located.size() + matches.simple.size());
    records.addLocated(text, matches.located);
    records.addSimple(text, matches.simple);
    return records.finish();
}

DiagnosticParser::DiagnosticParser()
{
    auto patterns = std::make_shared<Patterns>();
    patterns->location = compile(locationPattern);
    patterns->locationTail = compile(locationTailPattern(locationPattern));
    patterns->simple = compile(simplePattern);
    m_patterns = std::move(patterns);
}

QList<BuildDiagnostic> DiagnosticParser::parse(const QString& text) const
{
    const QByteArray utf8 = text.toUtf8();
    return parse(std::string_view(utf8.constData(), size_t(utf8.size())));
}

QList<BuildDiagnostic> DiagnosticParser::parse(std::string_view utf8Text) const
{
    ParserRecords records;
    addMatchesInParts(*m_patterns, utf8Text, records);
    return records.finish();
}

void DiagnosticParser::addMatchesInParts(const Patterns& patterns, std::string_view utf8Text, ParserRecords& records)
{
    // A large text is searched in parts at once, one per processor, each
    // part starting after a line that no match can leave, so that every
    // part finds the matches the whole text has there. Their records are
    // then joined in text order, dropping what an earlier part already has.
    const std::vector<std::string_view> parts = partsOf(utf8Text);
    if (parts.size() == 1) {
        addMatches(patterns, utf8Text, records);
        return;
    }
    std::vector<ParserRecords> later(parts.size() - 1);
    std::vector<std::future<void>> others;
    for (std::size_t i = 1; i < parts.size(); ++i)
        others.push_back(startBeside([&, i] { addMatches(patterns, parts[i], later[i - 1]); }));
    addMatches(patterns, parts[0], records);
    for (std::future<void>& other : others)
        other.get();
    for (ParserRecords& part : later)
        records.takeFrom(std::move(part));
}

std::vector<std::string_view> DiagnosticParser::partsOf(std::string_view utf8Text)
{
    // Smaller parts cost more in starting threads and joining than they save.
    constexpr std::size_t minimumPartBytes = 8 * 1024 * 1024;
    const std::size_t count =
        std::min<std::size_t>(std::max(1, QThread::idealThreadCount()), utf8Text.size() / minimumPartBytes);
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (std::size_t k = 1; k < count; ++k) {
        const std::size_t cut = Stream::lastSafeCut(utf8Text.substr(0, k * utf8Text.size() / count), start);
        if (cut <= start)
            continue;
        parts.push_back(utf8Text.substr(start, cut - start));
        start = cut;
    }
    parts.push_back(utf8Text.substr(start));
    return parts;
}

void DiagnosticParser::addMatches(const Patterns& patterns, std::string_view utf8Text, ParserRecords& records)
{
    // Characters U+0000 to U+0003 separate pieces of a log like line breaks
    // do. The activity log reader never leaves them in its text, so the copy
    // is rare. The scan for them is the colon scan that both passes start
    // from.
    Candidates candidates = findCandidates(utf8Text);
    std::string copy;
    if (candidates.hasPieceSeparators) {
        copy = withPieceSeparatorsAsLineFeeds(utf8Text);
        utf8Text = copy;
        candidates = findCandidates(utf8Text);
    }
    PassMatches matches;
    if (patterns.location && patterns.locationTail)
        matches.located =
            findLocatedAtCandidates(*patterns.location, *patterns.locationTail, utf8Text, candidates.extensions);
    if (patterns.simple)
        matches.simple = findSimpleAtCandidates(*patterns.simple, utf8Text, candidates.severityWords);
    records.reserve(matches.located.size() + matches.simple.size());
    records.addLocated(utf8Text, matches.located);
    records.addSimple(utf8Text, matches.simple);
}

DiagnosticParser::Stream::Stream(const DiagnosticParser& parser, std::size_t pieceSize)
    : m_patterns(parser.m_patterns), m_records(std::make_unique<ParserRecords>()), m_pieceSize(pieceSize)
{}

DiagnosticParser::Stream::~Stream() = default;

void DiagnosticParser::Stream::append(std::string_view utf8)
{
    if (utf8.size() < m_pieceSize) {
        m_pending.append(utf8);
        if (m_pending.size() >= m_pieceSize)
            searchHeldText();
        return;
    }
    // A large piece is searched where it lies rather than copied: the held
    // text is completed with its first lines up to the first cut, and only
    // what follows its own last cut is kept.
    std::size_t used = 0;
    while (!m_pending.empty()) {
        if (used == utf8.size())
            return;
        // A line at a time, with the byte after its break: whether a
        // carriage return ends a line depends on it.
        const std::size_t lineEnd = utf8.find_first_of("\r\n", used);
        const std::size_t take = lineEnd == std::string_view::npos ? utf8.size() : std::min(utf8.size(), lineEnd + 2);
        m_pending.append(utf8.substr(used, take - used));
        used = take;
        // What is held beyond the cut, when it all came from this piece, is
        // searched where it lies.
        if (searchHeldText() && m_pending.size() <= used) {
            used -= m_pending.size();
            m_pending.clear();
            m_searchedUpTo = 0;
        }
    }
    std::string_view rest = utf8.substr(used);
    const std::size_t cut = lastSafeCut(rest);
    if (cut > 0) {
        addMatchesInParts(*m_patterns, rest.substr(0, cut), *m_records);
        rest.remove_prefix(cut);
    }
    m_pending.assign(rest);
    m_searchedUpTo = cut == 0 && !rest.empty() ? rest.size() - 1 : 0;
}

bool DiagnosticParser::Stream::searchHeldText()
{
    const std::size_t cut = lastSafeCut(m_pending, m_searchedUpTo);
    if (cut == 0) {
        // A carriage return at the very end is undecided until the next byte.
        m_searchedUpTo = m_pending.empty() ? 0 : m_pending.size() - 1;
        return false;
    }
    addMatchesInParts(*m_patterns, std::string_view(m_pending).substr(0, cut), *m_records);
    m_pending.erase(0, cut);
    m_searchedUpTo = 0;
    return true;
}

QList<BuildDiagnostic> DiagnosticParser::Stream::finish()
{
    addMatchesInParts(*m_patterns, m_pending, *m_records);
    m_pending.clear();
    m_searchedUpTo = 0;
    QList<BuildDiagnostic> diagnostics = m_records->finish();
    m_records = std::make_unique<ParserRecords>();
    return diagnostics;
}

// A match runs across a line break only inside "\s*", which follows a ":"
// and takes nothing but white space. So a break right after a printable
// ASCII character other than ":" lies inside no match, and both patterns
// see the same lines on either side of it as in the whole text: "^" holds
// at the start of a piece as it does after a line break. A carriage return
// with a line feed after it (or a character that the parse turns into one)
// ends a line only together with it.
std::size_t DiagnosticParser::Stream::lastSafeCut(std::string_view utf8, std::size_t from)
{
    const auto safeBefore = [](unsigned char c) { return c > ' ' && c < 0x7F && c != ':'; };
    const auto isPieceSeparator = [](unsigned char c) { return c <= 3; };
    for (std::size_t i = utf8.size(); i-- > std::max<std::size_t>(from, 1);) {
        const char c = utf8[i];
        if (c == '\n') {
            const std::size_t before = utf8[i - 1] == '\r' ? i - 1 : i;
            if (before >= 1 && safeBefore(static_cast<unsigned char>(utf8[before - 1])))
                return i + 1;
        } else if (c == '\r') {
            if (i + 1 < utf8.size() && utf8[i + 1] != '\n' && !isPieceSeparator(static_cast<unsigned char>(utf8[i + 1]))
                && safeBefore(static_cast<unsigned char>(utf8[i - 1])))
                return i + 1;
        }
    }
    return 0;
}

std::vector<LocatedMatch> DiagnosticParser::locatedMatches(std::string_view normalisedUtf8) const
{
    // The tail is cut from the same constant pattern, so it compiles
    // whenever the whole pattern does.
    if (!m_patterns->location || !m_patterns->locationTail)
        return {};
    return findLocatedAtCandidates(*m_patterns->location, *m_patterns->locationTail, normalisedUtf8);
}

std::vector<SimpleMatch> DiagnosticParser::simpleMatches(std::string_view normalisedUtf8) const
{
    if (!m_patterns->simple)
        return {};
    return findSimpleAtCandidates(*m_patterns->simple, normalisedUtf8);
}

QString DiagnosticParser::cleanMessage(QStringView captured)
{
    QString cleaned;
    cleaned.reserve(captured.size());
    bool inSpaces = false;
    for (const QChar c : captured) {
        const bool space = c == u' ' || c == u'\t';
        if (space) {
            if (!inSpaces)
                cleaned.append(u' ');
            inSpaces = true;
        } else {
            cleaned.append(c);
            inSpaces = false;
        }
    }
    return cleaned.trimmed();
}

std::optional<qint64> DiagnosticParser::readNumber(QStringView captured)
{
    if (captured.isEmpty())
        return std::nullopt;
    bool negative = false;
    qsizetype i = 0;
    if (captured[0] == u'+' || captured[0] == u'-') {
        negative = captured[0] == u'-';
        i = 1;
    }
    if (i == captured.size())
        return std::nullopt;
    // Accumulate towards the negative side, which holds one more value.
    constexpr qint64 minimum = std::numeric_limits<qint64>::min();
    qint64 value = 0;
    for (; i < captured.size(); ++i) {
        const char16_t c = captured[i].unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        const int digit = c - u'0';
        if (value < (minimum + digit) / 10)
            return std::nullopt;
        value = value * 10 - digit;
    }
    if (negative)
        return value;
    if (value == minimum)
        return std::nullopt;
    return -value;
}

} // namespace corvane
