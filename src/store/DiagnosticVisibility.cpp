#include "DiagnosticVisibility.h"

#include <QCollator>
#include <QCollatorSortKey>
#include <QHash>

#include <algorithm>
#include <limits>
#include <numeric>

namespace corvane {

namespace {

QCollator nameCollator()
{
    // Case-insensitive here means ICU's secondary strength: accents still
    // tell names apart, letter case does not.
    // Qt's C locale compares sort keys byte by byte, ignoring the case
    // setting; a process started without a language (LANG=C, as in many
    // service and test environments) gets the Unicode root order instead.
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English, QLocale::UnitedStates);
    QCollator collator{locale};
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    collator.setNumericMode(false);
    collator.setIgnorePunctuation(false);
    return collator;
}

// Positions of `names` in collation order (stable), with their sort keys.
struct CollatedNames {
    std::vector<QCollatorSortKey> keys;
    std::vector<qsizetype> order;
};

CollatedNames collate(const QStringList& names)
{
    const QCollator collator = nameCollator();
    CollatedNames result;
    result.keys.reserve(size_t(names.size()));
    for (const QString& name : names)
        result.keys.push_back(collator.sortKey(name));
    result.order.resize(size_t(names.size()));
    std::iota(result.order.begin(), result.order.end(), qsizetype(0));
    std::stable_sort(result.order.begin(), result.order.end(), [&](qsizetype a, qsizetype b) {
        return result.keys[size_t(a)].compare(result.keys[size_t(b)]) < 0;
    });
    return result;
}

// Where each distinct file name of a list stands, so that a sort over
// thousands of diagnostics compares small integers instead of asking the
// collator for every pair. Names that collate as equal share a rank; the
// identity tells different strings apart.
struct NamePlace {
    int rank = -1;
    int identity = -1;
};

QHash<QStringView, NamePlace> rankNames(const QList<QStringView>& names)
{
    QHash<QStringView, NamePlace> places;
    QList<QStringView> distinctViews;
    for (const QStringView name : names) {
        if (!places.contains(name)) {
            places.insert(name, NamePlace{-1, int(distinctViews.size())});
            distinctViews.append(name);
        }
    }
    QStringList distinct;
    distinct.reserve(distinctViews.size());
    for (const QStringView name : distinctViews)
        distinct.append(name.toString());
    const CollatedNames collated = collate(distinct);
    int rank = -1;
    const QCollatorSortKey* previous = nullptr;
    for (const qsizetype index : collated.order) {
        const QCollatorSortKey& key = collated.keys[size_t(index)];
        if (!previous || previous->compare(key) != 0)
            ++rank;
        previous = &key;
        places[distinctViews[index]].rank = rank;
    }
    return places;
}

bool usesOwnLowerCase(const QLocale& locale)
{
    return locale.language() == QLocale::Turkish || locale.language() == QLocale::Azerbaijani;
}

} // namespace

// ---------------------------------------------------------------------------
// Names and search

int nameCollation::compare(const QString& a, const QString& b) { return nameCollator().compare(a, b); }

QStringList nameCollation::sorted(const QStringList& names)
{
    const CollatedNames collated = collate(names);
    QStringList result;
    result.reserve(names.size());
    for (const qsizetype index : collated.order)
        result.append(names[index]);
    return result;
}

SearchQuery::SearchQuery(const QString& searchText, const QLocale& locale) : m_query(searchText.trimmed())
{
    if (usesOwnLowerCase(locale)) {
        m_lowerCasing = locale;
        m_query = locale.toLower(m_query);
    }
    // One matcher per read: QString::contains would rebuild its skip table
    // for every diagnostic.
    m_matcher = QStringMatcher(m_query, m_lowerCasing ? Qt::CaseSensitive : Qt::CaseInsensitive);
}

bool SearchQuery::contains(QStringView text) const
{
    if (m_lowerCasing)
        return m_matcher.indexIn(m_lowerCasing->toLower(text.toString())) >= 0;
    return m_matcher.indexIn(text) >= 0;
}

bool SearchQuery::matches(const BuildDiagnostic& diagnostic) const
{
    return m_query.isEmpty() || contains(diagnostic.message)
        || contains(DiagnosticVisibility::fileName(diagnostic.filePath));
}

// ---------------------------------------------------------------------------
// Visibility and order

struct DiagnosticVisibility::Entry {
    qsizetype position;
    int severity;
    bool pinned;
    NamePlace name;
    qint64 line;
    QStringView fileName;
};

DiagnosticVisibility::DiagnosticVisibility(const Settings& settings)
    : m_settings(settings), m_search(settings.searchText)
{}

QStringView DiagnosticVisibility::fileName(const std::optional<QString>& filePath)
{
    static const QString noFile = QStringLiteral("Build");
    if (!filePath)
        return noFile;
    const qsizetype slash = filePath->lastIndexOf(u'/');
    return QStringView(*filePath).mid(slash + 1);
}

bool DiagnosticVisibility::isVisible(const BuildDiagnostic& diagnostic, const QString& projectName) const
{
    const bool isWarning = diagnostic.severity == DiagnosticSeverity::warning;
    const auto keyIn = [&](const QSet<DiagnosticPreferenceKey>& set) {
        return set.contains(DiagnosticPreferenceKey{projectName, diagnostic.signature()});
    };
    switch (m_settings.warningViewMode) {
    case WarningViewMode::normal:
        if (!m_settings.severityFilter.contains(diagnostic.severity))
            return false;
        if (isWarning && keyIn(m_settings.ignored))
            return false;
        break;
    case WarningViewMode::pinned:
        if (!isWarning || !keyIn(m_settings.pinned))
            return false;
        break;
    case WarningViewMode::ignored:
        if (!isWarning || !keyIn(m_settings.ignored))
            return false;
        break;
    }
    if (!m_settings.showBuildNoise && diagnostic.isBuildNoise())
        return false;
    return m_search.matches(diagnostic);
}

bool DiagnosticVisibility::anyVisible(const BuildSession& session) const
{
    return std::any_of(session.diagnostics.cbegin(), session.diagnostics.cend(),
                       [&](const BuildDiagnostic& diagnostic) { return isVisible(diagnostic, session.projectName); });
}

std::vector<DiagnosticVisibility::Entry> DiagnosticVisibility::sortedEntries(const BuildSession& session) const
{
    // The set lookups are done once per diagnostic and the collator is
    // consulted once per distinct file name.
    const QList<BuildDiagnostic>& diagnostics = session.diagnostics;
    std::vector<Entry> entries;
    QList<QStringView> names;
    for (qsizetype position = 0; position < diagnostics.size(); ++position) {
        const BuildDiagnostic& diagnostic = diagnostics[position];
        if (!isVisible(diagnostic, session.projectName))
            continue;
        const bool pinned = diagnostic.severity == DiagnosticSeverity::warning
            && m_settings.pinned.contains({session.projectName, diagnostic.signature()});
        const QStringView name = fileName(diagnostic.filePath);
        entries.push_back({position,
                           int(diagnostic.severity),
                           pinned,
                           {},
                           diagnostic.line.value_or(std::numeric_limits<qint64>::max()),
                           name});
        names.append(name);
    }
    const QHash<QStringView, NamePlace> places = rankNames(names);
    for (Entry& entry : entries)
        entry.name = places.value(entry.fileName);

    // Names that collate as equal but are different strings keep their
    // order, lines unconsulted.
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        if (a.severity != b.severity)
            return a.severity < b.severity;
        if (a.pinned != b.pinned)
            return a.pinned;
        if (a.name.identity != b.name.identity)
            return a.name.rank < b.name.rank;
        return a.line < b.line;
    });
    return entries;
}

QList<qsizetype> DiagnosticVisibility::order(const BuildSession& session) const
{
    const std::vector<Entry> entries = sortedEntries(session);
    QList<qsizetype> positions;
    positions.reserve(qsizetype(entries.size()));
    for (const Entry& entry : entries)
        positions.append(entry.position);
    return positions;
}

QList<DiagnosticFileGroup> DiagnosticVisibility::fileGroups(const BuildSession& session) const
{
    // One group per exact file name, in order of first appearance; then the
    // groups by the names' rank, so that names differing only in letter case
    // keep that order.
    QList<DiagnosticFileGroup> groups;
    QList<int> ranks;
    QHash<int, qsizetype> groupOfIdentity;
    for (const Entry& entry : sortedEntries(session)) {
        auto found = groupOfIdentity.constFind(entry.name.identity);
        if (found == groupOfIdentity.cend()) {
            found = groupOfIdentity.insert(entry.name.identity, groups.size());
            groups.append({entry.fileName.toString(), {}});
            ranks.append(entry.name.rank);
        }
        groups[*found].positions.append(entry.position);
    }
    QList<qsizetype> byRank(groups.size());
    std::iota(byRank.begin(), byRank.end(), qsizetype(0));
    std::stable_sort(byRank.begin(), byRank.end(), [&](qsizetype a, qsizetype b) { return ranks[a] < ranks[b]; });
    QList<DiagnosticFileGroup> ordered;
    ordered.reserve(groups.size());
    for (const qsizetype index : byRank)
        ordered.append(std::move(groups[index]));
    return ordered;
}

QList<BuildDiagnostic> DiagnosticVisibility::fixedDiagnostics(const BuildComparison& comparison) const
{
    if (m_settings.showBuildNoise)
        return comparison.fixedDiagnostics;
    QList<BuildDiagnostic> kept;
    for (const BuildDiagnostic& diagnostic : comparison.fixedDiagnostics) {
        if (!diagnostic.isBuildNoise())
            kept.append(diagnostic);
    }
    return kept;
}

QList<BuildDiagnostic> DiagnosticVisibility::listedFixedDiagnostics(const BuildComparison& comparison) const
{
    QList<BuildDiagnostic> listed = fixedDiagnostics(comparison);
    listed.removeIf([&](const BuildDiagnostic& diagnostic) {
        return !m_settings.severityFilter.contains(diagnostic.severity) || !m_search.matches(diagnostic);
    });
    return listed;
}

} // namespace corvane
