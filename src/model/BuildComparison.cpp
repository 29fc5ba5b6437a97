#include "BuildComparison.h"

#include "Hashing.h"
#include "StartBeside.h"

#include <QHash>

#include <algorithm>
#include <optional>
#include <vector>

namespace corvane {

namespace {

// The meaningful diagnostics of one list in a flat table keyed by signature:
// each signature is hashed once, the noise test runs once per diagnostic, and
// a table is two allocations however long the list. Huge logs give lists of a
// hundred thousand; a node per entry would cost more than the comparison. The
// table points at the records rather than copying their signatures, so they
// must not change while it is in use.
class SignatureTable {
public:
    struct Entry {
        size_t hash;
        const BuildDiagnostic* diagnostic;
    };

    explicit SignatureTable(const QList<BuildDiagnostic>& list)
    {
        m_entries.reserve(size_t(list.size()));
        for (const BuildDiagnostic& diagnostic : list) {
            if (!diagnostic.isBuildNoise())
                m_entries.push_back({signatureHash(diagnostic), &diagnostic});
        }
        size_t capacity = 16;
        while (capacity < 2 * m_entries.size())
            capacity *= 2;
        m_mask = capacity - 1;
        m_slots.assign(capacity, 0);
        // One slot per distinct signature, so that repeated diagnostics cannot
        // make long runs of probes.
        for (size_t i = 0; i < m_entries.size(); ++i) {
            size_t slot = m_entries[i].hash & m_mask;
            bool known = false;
            for (; m_slots[slot] != 0 && !known; slot = (slot + 1) & m_mask)
                known = matches(m_entries[m_slots[slot] - 1], m_entries[i]);
            if (!known)
                m_slots[slot] = quint32(i + 1);
        }
    }

    // In list order.
    const std::vector<Entry>& entries() const { return m_entries; }

    // The first diagnostic of this list with the entry's signature.
    const BuildDiagnostic* find(const Entry& entry) const
    {
        for (size_t slot = entry.hash & m_mask; m_slots[slot] != 0; slot = (slot + 1) & m_mask) {
            if (matches(m_entries[m_slots[slot] - 1], entry))
                return m_entries[m_slots[slot] - 1].diagnostic;
        }
        return nullptr;
    }

private:
    // The hash of signature(), without making one.
    static size_t signatureHash(const BuildDiagnostic& d)
    {
        size_t seed = ::qHash(int(d.severity), 0);
        seed = qHashOptional(d.filePath, seed);
        seed = qHashOptional(d.line, seed);
        seed = qHashOptional(d.column, seed);
        return ::qHash(d.message, seed);
    }

    // signature() == signature(), the numbers first. Texts of builds that
    // share them are the same storage, which settles them at once.
    static bool matches(const Entry& a, const Entry& b)
    {
        if (a.hash != b.hash)
            return false;
        const BuildDiagnostic& x = *a.diagnostic;
        const BuildDiagnostic& y = *b.diagnostic;
        const auto same = [](const QString& s, const QString& t) {
            return (s.constData() == t.constData() && s.size() == t.size()) || s == t;
        };
        return x.severity == y.severity && x.line == y.line && x.column == y.column
            && x.filePath.has_value() == y.filePath.has_value() && (!x.filePath || same(*x.filePath, *y.filePath))
            && same(x.message, y.message);
    }

    std::vector<Entry> m_entries;
    std::vector<quint32> m_slots; // entry index + 1; 0 is free
    size_t m_mask = 0;
};

// What stays of a diagnostic when its place in the file is not counted.
struct MovableKey {
    DiagnosticSeverity severity;
    std::optional<QString> filePath;
    QString message;

    bool operator==(const MovableKey&) const = default;
};

size_t qHash(const MovableKey& key, size_t seed = 0)
{
    seed = ::qHash(int(key.severity), seed);
    seed = qHashOptional(key.filePath, seed);
    return ::qHash(key.message, seed);
}

bool samePlace(const BuildDiagnostic& a, const BuildDiagnostic& b) { return a.line == b.line && a.column == b.column; }

// onMatch(current, previous) is told of each meaningful diagnostic of the
// current list and the previous one it matches, once the lists have been
// compared: it may change current records then.
template <typename OnMatch>
BuildComparison compareBySignature(const QList<BuildDiagnostic>& current, const QList<BuildDiagnostic>& previous,
                                   OnMatch onMatch)
{
    // The two tables, and then the two directions, do not depend on each
    // other: builds of hundreds of thousands of diagnostics take both
    // processors.
    constexpr qsizetype largeLists = 20000;
    const bool large = current.size() + previous.size() >= largeLists;
    std::optional<SignatureTable> previousSignatures;
    std::future<void> building = startBeside([&] { previousSignatures.emplace(previous); }, large);
    const SignatureTable currentSignatures(current);
    building.get();

    QList<BuildDiagnostic> fixed;
    std::future<void> fixing = startBeside(
        [&] {
            for (const SignatureTable::Entry& entry : previousSignatures->entries()) {
                if (!currentSignatures.find(entry))
                    fixed.append(*entry.diagnostic);
            }
        },
        large);
    BuildComparison comparison;
    comparison.hasBaseline = true;
    std::vector<std::pair<const BuildDiagnostic*, const BuildDiagnostic*>> matched;
    matched.reserve(currentSignatures.entries().size());
    for (const SignatureTable::Entry& entry : currentSignatures.entries()) {
        if (const BuildDiagnostic* match = previousSignatures->find(entry))
            matched.emplace_back(entry.diagnostic, match);
        else
            comparison.newDiagnosticIDs.insert(entry.diagnostic->id);
    }
    fixing.get();
    comparison.fixedDiagnostics = std::move(fixed);

    // Each half of the matches on a processor of its own: they touch
    // different records.
    const auto tell = [&](size_t from, size_t to) {
        for (size_t i = from; i < to; ++i)
            onMatch(*matched[i].first, *matched[i].second);
    };
    const size_t half = matched.size() / 2;
    std::future<void> firstHalf = startBeside([&] { tell(0, half); }, large);
    tell(half, matched.size());
    firstHalf.get();
    return comparison;
}

} // namespace

BuildComparison compareDiagnostics(const QList<BuildDiagnostic>& current,
                                   const std::optional<QList<BuildDiagnostic>>& previous)
{
    if (!previous)
        return BuildComparison::empty();
    return compareBySignature(current, *previous, [](const BuildDiagnostic&, const BuildDiagnostic&) {});
}

BuildComparison compareDiagnosticsSharingTexts(QList<BuildDiagnostic>& current,
                                               const std::optional<QList<BuildDiagnostic>>& previous)
{
    if (!previous)
        return BuildComparison::empty();
    // Detached before the comparison looks at it, so that the records it
    // points at are the ones given the earlier texts.
    BuildDiagnostic* own = current.data();
    return compareBySignature(current, *previous, [own](const BuildDiagnostic& d, const BuildDiagnostic& earlier) {
        BuildDiagnostic& record = own[&d - own];
        record.message = earlier.message;
        record.filePath = earlier.filePath;
        // The raw text is no part of the signature and may differ.
        if (record.rawText == earlier.rawText)
            record.rawText = earlier.rawText;
    });
}

BuildComparison compareDiagnosticsAllowingMoves(const QList<BuildDiagnostic>& current,
                                                const std::optional<QList<BuildDiagnostic>>& previous)
{
    if (!previous)
        return BuildComparison::empty();

    // The previous build's meaningful diagnostics by key, each list in order.
    QHash<MovableKey, std::vector<qsizetype>> unpaired;
    for (qsizetype i = 0; i < previous->size(); ++i) {
        const BuildDiagnostic& d = previous->at(i);
        if (!d.isBuildNoise())
            unpaired[MovableKey{d.severity, d.filePath, d.message}].push_back(i);
    }
    std::vector<bool> previousPaired(size_t(previous->size()), false);

    // Pairing at the same place first keeps a warning that did not move from
    // being taken by a moved twin and reported in its stead.
    std::vector<const BuildDiagnostic*> moved;
    std::vector<std::vector<qsizetype>*> movedCandidates;
    for (const BuildDiagnostic& d : current) {
        if (d.isBuildNoise())
            continue;
        const auto found = unpaired.find(MovableKey{d.severity, d.filePath, d.message});
        if (found == unpaired.end()) {
            moved.push_back(&d);
            movedCandidates.push_back(nullptr);
            continue;
        }
        std::vector<qsizetype>& candidates = found.value();
        const auto same = std::find_if(candidates.begin(), candidates.end(),
                                       [&](qsizetype i) { return samePlace(previous->at(i), d); });
        if (same != candidates.end()) {
            previousPaired[size_t(*same)] = true;
            candidates.erase(same);
        } else {
            moved.push_back(&d);
            movedCandidates.push_back(&candidates);
        }
    }

    BuildComparison comparison;
    comparison.hasBaseline = true;
    for (size_t i = 0; i < moved.size(); ++i) {
        std::vector<qsizetype>* candidates = movedCandidates[i];
        if (candidates && !candidates->empty()) {
            previousPaired[size_t(candidates->front())] = true;
            candidates->erase(candidates->begin());
        } else {
            comparison.newDiagnosticIDs.insert(moved[i]->id);
        }
    }
    for (qsizetype i = 0; i < previous->size(); ++i) {
        const BuildDiagnostic& d = previous->at(i);
        if (!previousPaired[size_t(i)] && !d.isBuildNoise())
            comparison.fixedDiagnostics.append(d);
    }
    return comparison;
}

} // namespace corvane
