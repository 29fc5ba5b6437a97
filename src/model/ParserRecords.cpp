#include "ParserRecords.h"

#include "DiagnosticParser.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string>
#include <unordered_map>
#include <utility>

namespace corvane {

namespace {

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

DiagnosticSeverity severityOf(const QString& word)
{
    return severityFromRawValue(word).value_or(DiagnosticSeverity::note);
}

// Whether cleanMessage() would leave the captured bytes as they are, as it
// does for most messages: no tab, no two spaces in a row, and printable
// ASCII at both ends, which trimming leaves alone.
bool isCleanMessage(std::string_view captured)
{
    const auto printableAscii = [](char c) { return c > ' ' && c < 0x7F; };
    return !captured.empty() && printableAscii(captured.front()) && printableAscii(captured.back())
        && captured.find('\t') == std::string_view::npos && captured.find("  ") == std::string_view::npos;
}

// ":" and the number, when there is one.
void appendNumberPart(std::string& text, std::optional<qint64> number)
{
    if (!number)
        return;
    char digits[24];
    const auto written = std::to_chars(std::begin(digits), std::end(digits), *number);
    text += ':';
    text.append(digits, written.ptr);
}

// Random (version 4) ids are made as QUuid::createUuid() makes them, but
// from one seed of 256 bits of the system's random source per parse: reading
// that source for every id costs microseconds on some processors, more than
// building the rest of a record, and the ids stay as unlikely to repeat.
QRandomGenerator seededGenerator()
{
    quint32 seed[8];
    QRandomGenerator::system()->fillRange(seed);
    return QRandomGenerator(seed);
}

bool isAscii(std::string_view bytes)
{
    size_t i = 0;
    quint64 seen = 0;
    for (; i + 8 <= bytes.size(); i += 8) {
        quint64 word;
        std::memcpy(&word, bytes.data() + i, 8);
        seen |= word;
    }
    for (; i < bytes.size(); ++i)
        seen |= static_cast<unsigned char>(bytes[i]);
    return (seen & 0x8080808080808080ull) == 0;
}

// Whether text is what QString::fromUtf8() makes of bytes. ASCII is compared
// as it is; anything else is rare enough to be converted.
bool isTextOf(QStringView text, std::string_view bytes)
{
    if (text.size() > qsizetype(bytes.size()))
        return false;
    if (!isAscii(bytes))
        return text == QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
    return text.size() == qsizetype(bytes.size()) && text == QLatin1StringView(bytes.data(), qsizetype(bytes.size()));
}

} // namespace

QString ParserRecords::SharedTexts::fromUtf8(std::string_view bytes)
{
    // The empty text has no storage to share, and a null QString marks a
    // free slot.
    if (bytes.empty())
        return QString::fromUtf8(bytes.data(), 0);
    if (2 * (m_used + 1) > m_slots.size())
        grow();
    const std::size_t hash = std::hash<std::string_view>{}(bytes);
    const std::size_t mask = m_slots.size() - 1;
    std::size_t i = hash & mask;
    for (; !m_slots[i].text.isNull(); i = (i + 1) & mask) {
        if (m_slots[i].hash == hash && isTextOf(m_slots[i].text, bytes))
            return m_slots[i].text;
    }
    m_slots[i] = {hash, QString::fromUtf8(bytes.data(), qsizetype(bytes.size()))};
    ++m_used;
    return m_slots[i].text;
}

void ParserRecords::SharedTexts::grow()
{
    std::vector<Slot> old(2 * m_slots.size());
    old.swap(m_slots);
    const std::size_t mask = m_slots.size() - 1;
    for (Slot& slot : old) {
        if (slot.text.isNull())
            continue;
        std::size_t i = slot.hash & mask;
        while (!m_slots[i].text.isNull())
            i = (i + 1) & mask;
        m_slots[i] = std::move(slot);
    }
}

ParserRecords::Index::Index(std::size_t records) : m_slots(std::bit_ceil(2 * records + 16)) {}

template <typename Same>
std::size_t ParserRecords::Index::probe(quint32 hash, Same&& same) const
{
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
        const Slot& slot = m_slots[i];
        if (slot.position < 0 || (slot.hash == hash && same(slot.position)))
            return i;
    }
}

void ParserRecords::Index::prefetch(std::size_t hash) const
{
    __builtin_prefetch(&m_slots[shortHash(hash) & (m_slots.size() - 1)]);
}

template <typename Same>
qsizetype ParserRecords::Index::find(std::size_t hash, Same&& same) const
{
    return m_slots[probe(shortHash(hash), same)].position;
}

template <typename Same>
qsizetype ParserRecords::Index::findOrAdd(std::size_t hash, qsizetype position, Same&& same)
{
    const quint32 key = shortHash(hash);
    const std::size_t at = probe(key, same);
    if (m_slots[at].position >= 0)
        return m_slots[at].position;
    m_slots[at] = {key, qint32(position)};
    if (++m_used * 2 > m_slots.size())
        grow();
    return -1;
}

// Slots are placed by the short hash they keep, so they move without their
// records being hashed again.
void ParserRecords::Index::grow()
{
    std::vector<Slot> old(m_slots.size() * 2);
    std::swap(old, m_slots);
    const std::size_t mask = m_slots.size() - 1;
    for (const Slot& slot : old) {
        if (slot.position < 0)
            continue;
        std::size_t i = slot.hash & mask;
        while (m_slots[i].position >= 0)
            i = (i + 1) & mask;
        m_slots[i] = slot;
    }
}

void ParserRecords::Index::reserve(std::size_t more)
{
    if ((m_used + more) * 2 <= m_slots.size())
        return;
    // One step to the size that fits, rather than doubling again and again.
    Index larger(m_used + more);
    const std::size_t mask = larger.m_slots.size() - 1;
    for (const Slot& slot : m_slots) {
        if (slot.position < 0)
            continue;
        std::size_t i = slot.hash & mask;
        while (larger.m_slots[i].position >= 0)
            i = (i + 1) & mask;
        larger.m_slots[i] = slot;
    }
    m_slots = std::move(larger.m_slots);
}

ParserRecords::ParserRecords(std::size_t expectedRecords)
    : m_signatures(expectedRecords),
      m_now(AbsoluteTime::now()),
      m_random(seededGenerator()),
      m_pathHash(qHash(m_hashedPath))
{
    m_result.reserve(qsizetype(expectedRecords));
}

QUuid ParserRecords::nextId()
{
    quint32 words[4];
    m_random.fillRange(words);
    const auto low = [](quint32 word) { return ushort(word & 0xFFFF); };
    const auto byte = [](quint32 word, int index) { return uchar(word >> (8 * index)); };
    return QUuid(words[0], low(words[1]), ushort((words[1] >> 16 & 0x0FFF) | 0x4000),
                 uchar((byte(words[2], 0) & 0x3F) | 0x80), byte(words[2], 1), byte(words[2], 2), byte(words[2], 3),
                 byte(words[3], 0), byte(words[3], 1), byte(words[3], 2), byte(words[3], 3));
}

std::size_t ParserRecords::signatureHash(const BuildDiagnostic& diagnostic, std::size_t messageHash)
{
    if (diagnostic.filePath
        && (diagnostic.filePath->constData() != m_hashedPath.constData()
            || diagnostic.filePath->size() != m_hashedPath.size())) {
        m_hashedPath = *diagnostic.filePath;
        m_pathHash = qHash(m_hashedPath);
    }
    return qHashMulti(messageHash, diagnostic.filePath ? m_pathHash : 0, diagnostic.line.value_or(-1),
                      diagnostic.column.value_or(-1), diagnostic.line.has_value(), diagnostic.column.has_value());
}

bool ParserRecords::append(BuildDiagnostic diagnostic, std::size_t messageHash)
{
    const std::size_t hash = signatureHash(diagnostic, messageHash);
    return append(std::move(diagnostic), messageHash, hash);
}

bool ParserRecords::append(BuildDiagnostic diagnostic, std::size_t messageHash, std::size_t signatureHash)
{
    const qsizetype position = m_result.size();
    const bool known = m_signatures.findOrAdd(signatureHash, position, [&](qsizetype kept) {
        const BuildDiagnostic& k = m_result.at(kept);
        return k.severity == diagnostic.severity && k.line == diagnostic.line && k.column == diagnostic.column
            && k.message == diagnostic.message && k.filePath == diagnostic.filePath;
    }) >= 0;
    if (known)
        return false;
    m_result.append(std::move(diagnostic));
    m_messageHashes.push_back(messageHash);
    return true;
}

void ParserRecords::reserve(std::size_t more)
{
    m_signatures.reserve(more);
    // Doubling, so that a log that comes in many pieces is not copied for each.
    const qsizetype wanted = m_result.size() + qsizetype(more);
    if (wanted > m_result.capacity())
        m_result.reserve(std::max(wanted, 2 * m_result.capacity()));
    m_messageHashes.reserve(std::size_t(m_result.capacity()));
}

// cleanMessage() of the captured bytes, shared with the records before
// when it needs no cleaning, as nearly every message does.
QString ParserRecords::message(std::string_view captured, bool clean)
{
    if (clean)
        return m_messages.fromUtf8(captured);
    return DiagnosticParser::cleanMessage(QString::fromUtf8(captured.data(), qsizetype(captured.size())));
}

void ParserRecords::addLocated(std::string_view text, const std::vector<LocatedMatch>& matches)
{
    // Consecutive diagnostics are often about the same file; they share its
    // path's string.
    std::string_view lastPath;
    QString lastPathString;
    for (const LocatedMatch& m : matches) {
        if (!m.path.valid() || !m.line.valid() || !m.severity.valid() || !m.message.valid())
            continue;
        BuildDiagnostic d;
        const std::string_view messageBytes = bytesOf(text, m.message);
        const bool clean = isCleanMessage(messageBytes);
        d.message = message(messageBytes, clean);
        if (d.message.isEmpty())
            continue;
        if (bytesOf(text, m.path) != lastPath) {
            lastPath = bytesOf(text, m.path);
            lastPathString = m_paths.fromUtf8(lastPath);
        }
        d.filePath = lastPathString;
        d.line = numberFrom(bytesOf(text, m.line));
        const QString word = severityWord(bytesOf(text, m.severity));
        if (m.column.valid() && !m.column.empty())
            d.column = numberFrom(bytesOf(text, m.column));
        d.severity = severityOf(word);
        // The record's place in the index is fetched while the rest of it is
        // made: the index of a large log is far bigger than the processor's
        // caches, so looking it up at once would wait on memory.
        const std::size_t messageHash = qHash(d.message, int(d.severity));
        const std::size_t hash = signatureHash(d, messageHash);
        m_signatures.prefetch(hash);
        // The raw text is put together in UTF-8 and converted once: a large
        // log makes hundreds of thousands of them.
        std::string& raw = m_rawText;
        raw.assign(lastPath);
        appendNumberPart(raw, d.line);
        appendNumberPart(raw, d.column);
        raw += ": ";
        raw += word.toStdString();
        raw += ": ";
        if (clean)
            raw += messageBytes;
        else
            raw += d.message.toStdString();
        d.rawText = QString::fromUtf8(raw.data(), qsizetype(raw.size()));
        d.id = nextId();
        d.timestamp = m_now;
        append(std::move(d), messageHash, hash);
    }
}

void ParserRecords::addSimple(std::string_view text, const std::vector<SimpleMatch>& matches)
{
    for (const SimpleMatch& m : matches) {
        if (!m.severity.valid() || !m.message.valid())
            continue;
        PendingSimple pending;
        pending.word = severityWord(bytesOf(text, m.severity));
        BuildDiagnostic& d = pending.diagnostic;
        const std::string_view messageBytes = bytesOf(text, m.message);
        d.message = message(messageBytes, isCleanMessage(messageBytes));
        if (d.message.isEmpty())
            continue;
        d.severity = severityOf(pending.word);
        pending.messageHash = qHash(d.message, int(d.severity));
        m_simple.push_back(std::move(pending));
    }
}

void ParserRecords::takeFrom(ParserRecords&& later)
{
    reserve(std::size_t(later.m_result.size()));
    // The index is fetched a few records ahead, as when the records were made.
    const std::size_t count = std::size_t(later.m_result.size());
    std::vector<std::size_t> hashes(count);
    for (std::size_t i = 0; i < count; ++i)
        hashes[i] = signatureHash(later.m_result[qsizetype(i)], later.m_messageHashes[i]);
    constexpr std::size_t ahead = 8;
    for (std::size_t i = 0; i < count; ++i) {
        if (i + ahead < count)
            m_signatures.prefetch(hashes[i + ahead]);
        append(std::move(later.m_result[qsizetype(i)]), later.m_messageHashes[i], hashes[i]);
    }
    later.m_result.clear();
    later.m_messageHashes.clear();
    std::move(later.m_simple.begin(), later.m_simple.end(), std::back_inserter(m_simple));
    later.m_simple.clear();
}

QList<BuildDiagnostic> ParserRecords::finish()
{
    // A message the log also reports with its location is kept only in its
    // located form. Simple matches are few, so each record's message hash
    // is looked up among theirs instead of every record being indexed by
    // severity and message.
    std::vector<bool> reportedWithLocation(m_simple.size());
    if (!m_simple.empty()) {
        std::unordered_multimap<std::size_t, std::size_t> simpleByMessage;
        for (std::size_t i = 0; i < m_simple.size(); ++i)
            simpleByMessage.emplace(m_simple[i].messageHash, i);
        for (qsizetype r = 0; r < m_result.size(); ++r) {
            const auto [first, last] = simpleByMessage.equal_range(m_messageHashes[std::size_t(r)]);
            for (auto it = first; it != last; ++it) {
                const BuildDiagnostic& simple = m_simple[it->second].diagnostic;
                if (simple.severity == m_result[r].severity && simple.message == m_result[r].message)
                    reportedWithLocation[it->second] = true;
            }
        }
    }
    // Simple records kept so far, by severity and message.
    Index keptSimple(m_simple.size());
    for (std::size_t i = 0; i < m_simple.size(); ++i) {
        PendingSimple& pending = m_simple[i];
        BuildDiagnostic& d = pending.diagnostic;
        if (reportedWithLocation[i])
            continue;
        // The word is one of the three raw values, so comparing severities
        // compares the word with the raw value.
        const auto same = [&](qsizetype kept) {
            return m_result[kept].severity == d.severity && m_result[kept].message == d.message;
        };
        if (keptSimple.find(pending.messageHash, same) >= 0)
            continue;
        d.rawText = pending.word + u": " + d.message;
        d.id = nextId();
        d.timestamp = m_now;
        const qsizetype position = m_result.size();
        if (append(std::move(d), pending.messageHash))
            keptSimple.findOrAdd(pending.messageHash, position, same);
    }
    m_simple.clear();
    m_messageHashes.clear();
    return std::exchange(m_result, {});
}

} // namespace corvane
