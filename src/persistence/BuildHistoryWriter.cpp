#include "BuildHistoryWriter.h"

#include "BinaryPropertyListOutput.h"
#include "HistoryTextPlanner.h"
#include "PropertyListRecords.h"
#include "StartBeside.h"

#include <QHash>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <vector>

namespace corvane {

namespace {

using namespace Qt::StringLiterals;

// Every key the archive uses. They are written first, so that each record
// refers to them without a look-up.
enum class Key {
    version,
    savedAt,
    sessions,
    id,
    startedAt,
    diagnostics,
    sourceName,
    projectName,
    activityLogPath,
    comparison,
    severity,
    message,
    filePath,
    line,
    column,
    rawText,
    timestamp,
    hasBaseline,
    newDiagnosticIDs,
    fixedDiagnostics,
    count
};
constexpr std::array<QStringView, size_t(Key::count)> keyNames{
    u"version",         u"savedAt",     u"sessions",         u"id",
    u"startedAt",       u"diagnostics", u"sourceName",       u"projectName",
    u"activityLogPath", u"comparison",  u"severity",         u"message",
    u"filePath",        u"line",        u"column",           u"rawText",
    u"timestamp",       u"hasBaseline", u"newDiagnosticIDs", u"fixedDiagnostics",
};

// Texts numbered on the planner's thread at a time: enough that starting the
// thread is nothing beside the work, few enough that the writing waits for
// the first piece only briefly.
constexpr qsizetype textsPerPiece = 32 * 1024;

// A dictionary's references, gathered before it is written.
struct Entries {
    std::array<quint32, 8> keys;
    std::array<quint32, 8> values;
    qsizetype count = 0;

    void add(quint32 key, quint32 value)
    {
        keys[size_t(count)] = key;
        values[size_t(count)] = value;
        ++count;
    }
};

// Objects are numbered as they are met and written in any order, the offset
// table putting them back in order: a value is written the first time it is
// met, before the container that refers to it, and a container's own
// containers are numbered when it is written and filled in after it.
class Encoder {
public:
    Encoder(const BuildHistoryArchive& archive, QIODevice& device)
        : m_archive(archive), m_out(device), m_planner(archive)
    {}
    bool run();

private:
    static constexpr quint32 unset = std::numeric_limits<quint32>::max();

    quint32 allocate(qsizetype count = 1);
    void begin(quint32 object) { m_offsets[object] = m_out.position(); }

    quint32 string(const QString& text);
    quint32 uuid(const QUuid& id);
    quint32 integer(qint64 value);
    quint32 boolean(bool value);
    quint32 date(AbsoluteTime time);
    static quint32 key(Key name) { return 1 + quint32(name); }
    quint32 severity(DiagnosticSeverity value);
    void dictionary(quint32 self, const Entries& entries);

    void session(const BuildSession& session, quint32 self);
    void diagnostics(const QList<BuildDiagnostic>& list, quint32 self);
    void diagnostic(const BuildDiagnostic& diagnostic, quint32 self);
    void comparison(const BuildComparison& comparison, quint32 self);

    const BuildHistoryArchive& m_archive;
    BinaryPropertyListOutput m_out;
    std::vector<quint64> m_offsets; // by object; 0 until written
    // The texts are numbered a piece ahead of the writing, on a thread
    // beside it; each number's object is noted when its first text is met.
    HistoryTextPlanner m_planner;
    HistoryTextPlanner::Piece m_piece;
    size_t m_pieceUsed = 0;
    std::future<HistoryTextPlanner::Piece> m_nextPiece;
    std::vector<quint32> m_textObjects;
    std::array<quint32, allDiagnosticSeverities.size()> m_severities;
    // Line and column numbers are mostly small, and a table of those beats
    // hashing them.
    std::vector<quint32> m_smallIntegers = std::vector<quint32>(4096, unset);
    QHash<qint64, quint32> m_integers;
    quint32 m_booleans[2] = {unset, unset};
    // A capture gives all its diagnostics one time stamp; a date is stored
    // again only when it differs from the one before.
    quint64 m_lastDate = 0;
    quint32 m_lastDateObject = unset;
    // The session being written: its new-diagnostic ids, and the objects its
    // diagnostics' ids went into.
    const QSet<QUuid>* m_newIDs = nullptr;
    QHash<QUuid, quint32> m_newIDObjects;
};

quint32 Encoder::allocate(qsizetype count)
{
    const size_t first = m_offsets.size();
    m_offsets.resize(first + size_t(count), 0);
    return quint32(first);
}

quint32 Encoder::string(const QString& text)
{
    if (m_pieceUsed == m_piece.texts.size()) {
        m_piece = m_nextPiece.get();
        m_pieceUsed = 0;
        m_nextPiece = startBeside([this] { return m_planner.next(textsPerPiece); });
    }
    // The planner walks the archive as this does; anything else is a fault here.
    Q_ASSERT(m_piece.texts[m_pieceUsed] == &text);
    // A text met for the first time is copied into the file; its characters
    // are fetched while the texts before it are written.
    constexpr size_t ahead = 8;
    if (const size_t later = m_pieceUsed + ahead;
        later < m_piece.texts.size() && m_piece.numbers[later] >= m_textObjects.size()) {
        const QString& upcoming = *m_piece.texts[later];
        const auto* characters = reinterpret_cast<const char*>(upcoming.constData());
        for (qsizetype line = 0; line < std::min<qsizetype>(2 * upcoming.size(), 256); line += 64)
            __builtin_prefetch(characters + line);
    }
    const quint32 number = m_piece.numbers[m_pieceUsed++];
    if (number < m_textObjects.size())
        return m_textObjects[number];
    const quint32 object = allocate();
    begin(object);
    m_out.writeString(text);
    m_textObjects.push_back(object);
    return object;
}

quint32 Encoder::severity(DiagnosticSeverity value)
{
    quint32& object = m_severities[size_t(value)];
    if (object == unset) {
        object = allocate();
        begin(object);
        m_out.writeString(rawValue(value));
    }
    return object;
}

quint32 Encoder::uuid(const QUuid& id)
{
    char16_t text[canonicalUuidLength];
    writeCanonicalUuid(id, text);
    const quint32 object = allocate();
    begin(object);
    m_out.writeString(QStringView(text, canonicalUuidLength));
    return object;
}

quint32 Encoder::integer(qint64 value)
{
    const bool small = value >= 0 && quint64(value) < m_smallIntegers.size();
    if (small && m_smallIntegers[size_t(value)] != unset)
        return m_smallIntegers[size_t(value)];
    if (!small) {
        if (const auto it = m_integers.constFind(value); it != m_integers.cend())
            return *it;
    }
    const quint32 object = allocate();
    begin(object);
    m_out.writeInteger(value);
    if (small)
        m_smallIntegers[size_t(value)] = object;
    else
        m_integers.insert(value, object);
    return object;
}

quint32 Encoder::boolean(bool value)
{
    quint32& object = m_booleans[value ? 1 : 0];
    if (object == unset) {
        object = allocate();
        begin(object);
        m_out.writeBoolean(value);
    }
    return object;
}

quint32 Encoder::date(AbsoluteTime time)
{
    const quint64 bits = std::bit_cast<quint64>(time.secondsSinceReferenceDate);
    if (m_lastDateObject == unset || bits != m_lastDate) {
        m_lastDateObject = allocate();
        begin(m_lastDateObject);
        m_out.writeDate(time.secondsSinceReferenceDate);
        m_lastDate = bits;
    }
    return m_lastDateObject;
}

void Encoder::dictionary(quint32 self, const Entries& entries)
{
    begin(self);
    m_out.writeDictionaryMarker(quint64(entries.count));
    m_out.writeReferences(entries.keys.data(), entries.count);
    m_out.writeReferences(entries.values.data(), entries.count);
}

void Encoder::diagnostic(const BuildDiagnostic& d, quint32 self)
{
    Entries entries;
    const quint32 id = uuid(d.id);
    if (m_newIDs && m_newIDs->contains(d.id))
        m_newIDObjects.insert(d.id, id);
    entries.add(key(Key::id), id);
    entries.add(key(Key::severity), this->severity(d.severity));
    entries.add(key(Key::message), string(d.message));
    if (d.filePath)
        entries.add(key(Key::filePath), string(*d.filePath));
    if (d.line)
        entries.add(key(Key::line), integer(*d.line));
    if (d.column)
        entries.add(key(Key::column), integer(*d.column));
    entries.add(key(Key::rawText), string(d.rawText));
    entries.add(key(Key::timestamp), date(d.timestamp));
    dictionary(self, entries);
}

void Encoder::diagnostics(const QList<BuildDiagnostic>& list, quint32 self)
{
    const quint32 first = allocate(list.size());
    begin(self);
    m_out.writeArrayMarker(quint64(list.size()));
    m_out.writeConsecutiveReferences(first, list.size());
    // The records are far apart in memory from what they refer to; fetching
    // one a few ahead overlaps its cache misses with the writing.
    constexpr qsizetype ahead = 4;
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i + ahead < list.size()) {
            const auto* later = reinterpret_cast<const char*>(&list[i + ahead]);
            for (size_t line = 0; line < sizeof(BuildDiagnostic); line += 64)
                __builtin_prefetch(later + line);
        }
        diagnostic(list[i], first + quint32(i));
    }
}

void Encoder::comparison(const BuildComparison& c, quint32 self)
{
    Entries entries;
    entries.add(key(Key::hasBaseline), boolean(c.hasBaseline));
    const quint32 newIDs = allocate();
    entries.add(key(Key::newDiagnosticIDs), newIDs);
    const quint32 fixed = allocate();
    entries.add(key(Key::fixedDiagnostics), fixed);
    dictionary(self, entries);

    std::vector<quint32> references;
    references.reserve(size_t(c.newDiagnosticIDs.size()));
    for (const QUuid& id : c.newDiagnosticIDs) {
        const auto known = m_newIDObjects.constFind(id);
        references.push_back(known != m_newIDObjects.cend() ? *known : uuid(id));
    }
    begin(newIDs);
    m_out.writeArrayMarker(references.size());
    m_out.writeReferences(references.data(), qsizetype(references.size()));
    diagnostics(c.fixedDiagnostics, fixed);
}

void Encoder::session(const BuildSession& s, quint32 self)
{
    Entries entries;
    entries.add(key(Key::id), uuid(s.id));
    entries.add(key(Key::startedAt), date(s.startedAt));
    const quint32 list = allocate();
    entries.add(key(Key::diagnostics), list);
    entries.add(key(Key::sourceName), string(s.sourceName));
    entries.add(key(Key::projectName), string(s.projectName));
    if (s.activityLogPath)
        entries.add(key(Key::activityLogPath), string(*s.activityLogPath));
    const quint32 record = allocate();
    entries.add(key(Key::comparison), record);
    dictionary(self, entries);

    m_newIDs = s.comparison.newDiagnosticIDs.isEmpty() ? nullptr : &s.comparison.newDiagnosticIDs;
    m_newIDObjects.clear();
    diagnostics(s.diagnostics, list);
    m_newIDs = nullptr;
    comparison(s.comparison, record);
}

// The most objects an archive can need, for the size of references, which
// every container is written with before the last object is known. Near the
// limits of a size this may choose the next one, which costs a few bytes and
// changes nothing a reader sees.
quint64 mostObjects(const BuildHistoryArchive& archive)
{
    constexpr quint64 keys = 20;
    constexpr quint64 perArchive = 4;    // root, version, time, list of sessions
    constexpr quint64 perSession = 12;   // record, its values, lists, comparison and its values
    constexpr quint64 perDiagnostic = 9; // record and its values
    quint64 count = keys + perArchive;
    for (const BuildSession& s : archive.sessions) {
        count += perSession + quint64(s.comparison.newDiagnosticIDs.size());
        count += perDiagnostic * quint64(s.diagnostics.size() + s.comparison.fixedDiagnostics.size());
    }
    return count;
}

bool Encoder::run()
{
    const BuildHistoryArchive& archive = m_archive;
    const quint64 most = mostObjects(archive);
    // Object numbers are 32 bits here; no history comes near that.
    if (most > std::numeric_limits<quint32>::max())
        return false;
    m_out.setReferenceSize(BinaryPropertyListOutput::bytesFor(most - 1));
    m_out.writeMagic();
    m_offsets.reserve(size_t(most));
    m_severities.fill(unset);
    // A small first piece, as the writing waits for it.
    m_nextPiece = startBeside([this] { return m_planner.next(textsPerPiece / 8); });

    // The root must be the first object, the keys follow in their order.
    const quint32 root = allocate();
    for (const QStringView name : keyNames) {
        begin(allocate());
        m_out.writeString(name);
    }
    Entries entries;
    entries.add(key(Key::version), integer(archive.version));
    entries.add(key(Key::savedAt), date(archive.savedAt));
    const quint32 list = allocate();
    entries.add(key(Key::sessions), list);
    dictionary(root, entries);

    const qsizetype count = archive.sessions.size();
    const quint32 first = allocate(count);
    begin(list);
    m_out.writeArrayMarker(quint64(count));
    m_out.writeConsecutiveReferences(first, count);
    for (qsizetype i = 0; i < count; ++i)
        session(archive.sessions[i], first + quint32(i));

    const quint64 tableOffset = m_out.position();
    const int offsetSize = BinaryPropertyListOutput::bytesFor(*std::max_element(m_offsets.begin(), m_offsets.end()));
    for (const quint64 offset : m_offsets)
        m_out.writeBigEndian(offset, offsetSize);
    m_out.writeTrailer(offsetSize, m_offsets.size(), tableOffset);
    return m_out.finish();
}

} // namespace

bool BuildHistoryWriter::write(const BuildHistoryArchive& archive, QIODevice& device)
{
    return Encoder(archive, device).run();
}

} // namespace corvane
