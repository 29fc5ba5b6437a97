#include "CheckReport.h"

#include "BuildComparison.h"

#include <QDir>

namespace corvane {

QString checkStateName(CheckState state)
{
    switch (state) {
    case CheckState::added:
        return QStringLiteral("new");
    case CheckState::unchanged:
        return QStringLiteral("unchanged");
    case CheckState::fixed:
        return QStringLiteral("fixed");
    case CheckState::reported:
        break;
    }
    return QStringLiteral("reported");
}

qsizetype CheckReport::count(CheckState state) const
{
    return std::count_if(entries.cbegin(), entries.cend(),
                         [&](const CheckedDiagnostic& e) { return e.state == state; });
}

qsizetype CheckReport::count(CheckState state, DiagnosticSeverity severity) const
{
    return std::count_if(entries.cbegin(), entries.cend(), [&](const CheckedDiagnostic& e) {
        return e.state == state && e.diagnostic.severity == severity;
    });
}

CheckReport makeCheckReport(const QList<BuildDiagnostic>& current,
                            const std::optional<QList<BuildDiagnostic>>& baseline, MatchMode mode)
{
    const BuildComparison comparison = mode == MatchMode::moved ? compareDiagnosticsAllowingMoves(current, baseline)
                                                                : compareDiagnostics(current, baseline);
    CheckReport report;
    report.hasBaseline = comparison.hasBaseline;
    report.entries.reserve(current.size() + comparison.fixedDiagnostics.size());
    for (const BuildDiagnostic& diagnostic : current) {
        if (diagnostic.isBuildNoise())
            continue;
        CheckState state = CheckState::reported;
        if (report.hasBaseline)
            state = comparison.newDiagnosticIDs.contains(diagnostic.id) ? CheckState::added : CheckState::unchanged;
        report.entries.append({state, diagnostic});
    }
    for (const BuildDiagnostic& diagnostic : comparison.fixedDiagnostics)
        report.entries.append({CheckState::fixed, diagnostic});
    return report;
}

void makePathsRelative(QList<BuildDiagnostic>& diagnostics, const QString& folder)
{
    QString prefix = QDir::cleanPath(QDir(folder).absolutePath());
    if (!prefix.endsWith(u'/'))
        prefix += u'/';
    for (BuildDiagnostic& diagnostic : diagnostics) {
        if (diagnostic.filePath && diagnostic.filePath->startsWith(prefix))
            diagnostic.filePath = diagnostic.filePath->sliced(prefix.size());
    }
}

} // namespace corvane
