#include "DiagnosticParser.h"

#include "ParserCandidates.h"
#include "ParserPatterns.h"
#include "ParserSearch.h"

#include <QRandomGenerator>

#include <unicode/regex.h>
#include <unicode/utext.h>

#include <algorithm>
#include <bit>
#include <cstring>
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

QString slice(std::string_view text, ByteRange range)
{
    return QString::fromUtf8(text.data() + range.begin, qsizetype(range.end - range.begin));
}

std::string_view bytesOf(std::string_view text, ByteRange range)
{
    return text.substr(size_t(range.begin), size_t(range.end - range.begin));
}

// readNumber() of the captured bytes without making a string of them: it
// takes ASCII digits only, and no byte of a non-ASCII character is one.
std::optional<qint64> numberFrom(std::string_view captured)
{
    if (captured.size() > 64)
        return DiagnosticParser::readNumber(QString::fromUtf8(captured.data(), qsizetype(captured.size())));
    char16_t wide[64];
    for (size_t i = 0; i < captured.size(); ++i)
        wide[i] = static_cast<unsigned char>(captured[i]);
    return DiagnosticParser::readNumber(QStringView(wide, qsizetype(captured.size())));
}

// The severity word in lower case, as a raw value when it is one.
QString severityWord(std::string_view captured)
{
    for (const DiagnosticSeverity severity : allDiagnosticSeverities) {
        const QString word = rawValue(severity);
        if (qsizetype(captured.size()) == word.size()
            && std::equal(captured.begin(), captured.end(), word.begin(), [](char c, QChar lower) {
                   return (static_cast<unsigned char>(c) | 0x20) == lower.unicode();
               }))
            return word;
    }
    return QString::fromUtf8(captured.data(), qsizetype(captured.size())).toLower();
}

// cleanMessage() of the captured bytes. Most messages are already clean:
// no tab, no two spaces in a row, and printable ASCII at both ends, which
// trimming leaves alone.
QString cleanedMessage(std::string_view captured)
{
    const auto printableAscii = [](char c) { return c > ' ' && c < 0x7F; };
    const bool clean = !captured.empty() && printableAscii(captured.front()) && printableAscii(captured.back())
        && captured.find('\t') == std::string_view::npos && captured.find("  ") == std::string_view::npos;
    const QString text = QString::fromUtf8(captured.data(), qsizetype(captured.size()));
    return clean ? text : DiagnosticParser::cleanMessage(text);
}

// The records kept so far, looked up by a hash of some of their fields. A
// flat table of hashes and positions stays in the cache where a set of
// copied keys would not; equal hashes are confirmed on the record itself.
class RecordIndex {
public:
    explicit RecordIndex(std::size_t records) : m_slots(std::bit_ceil(2 * records + 16)) {}

    // The position of a record for which `same` holds, or -1.
    template <typename Same>
    qsizetype find(std::size_t hash, Same&& same) const
    {
        return m_slots[probe(hash, same)].position;
    }

    // As find(), remembering `position` under `hash` when nothing is found.
    template <typename Same>
    qsizetype findOrAdd(std::size_t hash, qsizetype position, Same&& same)
    {
        Slot& slot = m_slots[probe(hash, same)];
        if (slot.position >= 0)
            return slot.position;
        slot = {shortHash(hash), qint32(position)};
        return -1;
    }

private:
    struct Slot {
        quint32 hash = 0;
        qint32 position = -1;
    };

    static quint32 shortHash(std::size_t hash) { return quint32(hash ^ (hash >> 32)); }

    // The slot of the record for which `same` holds, or the empty slot where
    // it would go.
    template <typename Same>
    std::size_t probe(std::size_t hash, Same&& same) const
    {
        const std::size_t mask = m_slots.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            const Slot& slot = m_slots[i];
            if (slot.position < 0 || (slot.hash == shortHash(hash) && same(slot.position)))
                return i;
        }
    }

    std::vector<Slot> m_slots;
};

// Random (version 4) ids as QUuid::createUuid() makes them. That reads the
// system's random source for every id, which on some processors costs
// microseconds per call, more than building the rest of a record; one seed
// of 256 bits from it per parse keeps the ids as unlikely to repeat.
class IdSource {
public:
    IdSource()
    {
        quint32 seed[8];
        QRandomGenerator::system()->fillRange(seed);
        m_random = QRandomGenerator(seed);
    }

    QUuid next()
    {
        quint32 words[4];
        m_random.fillRange(words);
        const auto low = [](quint32 word) { return ushort(word & 0xFFFF); };
        const auto byte = [](quint32 word, int index) { return uchar(word >> (8 * index)); };
        return QUuid(words[0], low(words[1]), ushort((words[1] >> 16 & 0x0FFF) | 0x4000),
                     uchar((byte(words[2], 0) & 0x3F) | 0x80), byte(words[2], 1), byte(words[2], 2), byte(words[2], 3),
                     byte(words[3], 0), byte(words[3], 1), byte(words[3], 2), byte(words[3], 3));
    }

private:
    QRandomGenerator m_random;
};

} // namespace

QList<BuildDiagnostic> DiagnosticParser::diagnosticsFromMatches(std::string_view text, const PassMatches& matches)
{
    QList<BuildDiagnostic> result;
    const std::size_t most = matches.located.size() + matches.simple.size();
    result.reserve(qsizetype(most));
    RecordIndex signatures(most);
    RecordIndex severityMessages(most);
    const AbsoluteTime now = AbsoluteTime::now();
    IdSource ids;

    // The severity and message hash once for both indexes, and a path's hash
    // is kept for the records of the same file that follow it.
    // Holding the hashed path keeps its characters from being freed and
    // reused by another path while it is compared by address.
    QString hashedPath;
    std::size_t pathHash = qHash(hashedPath);
    auto append = [&](BuildDiagnostic diagnostic, std::size_t messageHash) {
        if (diagnostic.filePath
            && (diagnostic.filePath->constData() != hashedPath.constData()
                || diagnostic.filePath->size() != hashedPath.size())) {
            hashedPath = *diagnostic.filePath;
            pathHash = qHash(hashedPath);
        }
        const std::size_t signatureHash =
            qHashMulti(messageHash, diagnostic.filePath ? pathHash : 0, diagnostic.line.value_or(-1),
                       diagnostic.column.value_or(-1), diagnostic.line.has_value(), diagnostic.column.has_value());
        const qsizetype position = result.size();
        const bool known = signatures.findOrAdd(signatureHash, position, [&](qsizetype kept) {
            const BuildDiagnostic& k = result.at(kept);
            return k.severity == diagnostic.severity && k.line == diagnostic.line && k.column == diagnostic.column
                && k.message == diagnostic.message && k.filePath == diagnostic.filePath;
        }) >= 0;
        if (known)
            return;
        severityMessages.findOrAdd(messageHash, position, [&](qsizetype kept) {
            return result.at(kept).severity == diagnostic.severity && result.at(kept).message == diagnostic.message;
        });
        result.append(std::move(diagnostic));
    };
    auto severityOf = [](const QString& word) { return severityFromRawValue(word).value_or(DiagnosticSeverity::note); };

    // Consecutive diagnostics are often about the same file; they share its
    // path's string.
    std::string_view lastPath;
    QString lastPathString;
    // ":" and the number, when there is one.
    auto numberPart = [](std::optional<qint64> number) {
        return number ? ':' + std::to_string(*number) : std::string();
    };
    for (const LocatedMatch& m : matches.located) {
        if (!m.path.valid() || !m.line.valid() || !m.severity.valid() || !m.message.valid())
            continue;
        BuildDiagnostic d;
        d.message = cleanedMessage(bytesOf(text, m.message));
        if (d.message.isEmpty())
            continue;
        if (bytesOf(text, m.path) != lastPath) {
            lastPath = bytesOf(text, m.path);
            lastPathString = slice(text, m.path);
        }
        d.filePath = lastPathString;
        d.line = numberFrom(bytesOf(text, m.line));
        const QString word = severityWord(bytesOf(text, m.severity));
        if (m.column.valid() && !m.column.empty())
            d.column = numberFrom(bytesOf(text, m.column));
        d.severity = severityOf(word);
        const std::string numbers = numberPart(d.line) + numberPart(d.column);
        // Exactly the room it needs: a large log makes hundreds of thousands.
        QString& raw = d.rawText;
        raw.reserve(lastPathString.size() + qsizetype(numbers.size()) + word.size() + d.message.size() + 4);
        raw += lastPathString;
        raw += QLatin1StringView(numbers.data(), qsizetype(numbers.size()));
        raw += u": ";
        raw += word;
        raw += u": ";
        raw += d.message;
        d.id = ids.next();
        d.timestamp = now;
        const std::size_t messageHash = qHash(d.message, int(d.severity));
        append(std::move(d), messageHash);
    }

    for (const SimpleMatch& m : matches.simple) {
        if (!m.severity.valid() || !m.message.valid())
            continue;
        const QString word = severityWord(bytesOf(text, m.severity));
        BuildDiagnostic d;
        d.message = cleanedMessage(bytesOf(text, m.message));
        if (d.message.isEmpty())
            continue;
        d.severity = severityOf(word);
        // A message the log also reports with its location is kept only in
        // its located form. The word is one of the three raw values, so
        // comparing severities compares the word with the raw value.
        const std::size_t messageHash = qHash(d.message, int(d.severity));
        const bool located = severityMessages.find(messageHash, [&](qsizetype kept) {
            return result[kept].severity == d.severity && result[kept].message == d.message;
        }) >= 0;
        if (located)
            continue;
        d.rawText = word + u": " + d.message;
        d.id = ids.next();
        d.timestamp = now;
        append(std::move(d), messageHash);
    }
    return result;
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
    if (m_patterns->location && m_patterns->locationTail)
        matches.located =
            findLocatedAtCandidates(*m_patterns->location, *m_patterns->locationTail, utf8Text, candidates.extensions);
    if (m_patterns->simple)
        matches.simple = findSimpleAtCandidates(*m_patterns->simple, utf8Text, candidates.severityWords);
    return diagnosticsFromMatches(utf8Text, matches);
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
