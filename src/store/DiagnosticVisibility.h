#pragma once

#include "BuildComparison.h"
#include "BuildDiagnostic.h"
#include "BuildSession.h"
#include "DiagnosticPreferenceKey.h"
#include "DiagnosticSeverity.h"

#include <QList>
#include <QLocale>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QStringMatcher>
#include <QStringView>

#include <optional>
#include <vector>

namespace corvane {

// Normal shows the severity filter's diagnostics without ignored warnings;
// pinned and ignored show only the warnings of that set.
enum class WarningViewMode { normal, pinned, ignored };

// The one collation of file and project names: locale-aware, letter case
// ignored, accents counted.
namespace nameCollation {
// Negative, zero or positive.
int compare(const QString& a, const QString& b);
// Equal names keep their order.
QStringList sorted(const QStringList& names);
} // namespace nameCollation

// The one search test: the trimmed text, found in a diagnostic's message or
// file name, letter case ignored as the user's locale ignores it.
class SearchQuery {
public:
    explicit SearchQuery(const QString& searchText, const QLocale& locale = QLocale());

    bool isEmpty() const { return m_query.isEmpty(); }
    bool matches(const BuildDiagnostic& diagnostic) const;

private:
    bool contains(QStringView text) const;

    QString m_query;
    // Qt's case folding everywhere but where the locale's own lower case
    // differs from it (the dotted and dotless i of Turkish and Azerbaijani).
    std::optional<QLocale> m_lowerCasing;
    QStringMatcher m_matcher;
};

// A section of the diagnostic list: one file name and, in display order, the
// positions of its visible diagnostics in the session's list.
struct DiagnosticFileGroup {
    QString fileName;
    QList<qsizetype> positions;

    bool operator==(const DiagnosticFileGroup&) const = default;
};

// Decides which of a session's diagnostics are visible and in what order,
// for one set of filter settings. Nothing else in the program filters or
// sorts diagnostics for display. The sets must outlive the object.
class DiagnosticVisibility {
public:
    struct Settings {
        const QSet<DiagnosticSeverity>& severityFilter;
        const QString& searchText;
        bool showBuildNoise;
        WarningViewMode warningViewMode;
        const QSet<DiagnosticPreferenceKey>& pinned;
        const QSet<DiagnosticPreferenceKey>& ignored;
    };

    explicit DiagnosticVisibility(const Settings& settings);

    // The last component of a file path, or "Build" without a path: the name
    // that search and sort use, without a copy.
    static QStringView fileName(const std::optional<QString>& filePath);

    bool isVisible(const BuildDiagnostic& diagnostic, const QString& projectName) const;
    bool anyVisible(const BuildSession& session) const;
    // Positions in the session's list of its visible diagnostics, in display
    // order: errors, warnings (pinned first), notes; within a severity by
    // file name, then by line, a missing line last.
    QList<qsizetype> order(const BuildSession& session) const;
    // The same diagnostics by file, the files in name order.
    QList<DiagnosticFileGroup> fileGroups(const BuildSession& session) const;

    // The comparison's fixed diagnostics without build noise unless it is shown.
    QList<BuildDiagnostic> fixedDiagnostics(const BuildComparison& comparison) const;
    // Those narrowed further by the search and the severity filter, as the
    // list's fixed section shows them.
    QList<BuildDiagnostic> listedFixedDiagnostics(const BuildComparison& comparison) const;

private:
    struct Entry;
    std::vector<Entry> sortedEntries(const BuildSession& session) const;

    Settings m_settings;
    SearchQuery m_search;
};

} // namespace corvane
