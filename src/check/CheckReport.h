#pragma once

#include "BuildDiagnostic.h"

#include <QList>
#include <QString>

#include <optional>

namespace corvane {

// Where a diagnostic stands against the baseline. Without a baseline every
// diagnostic is simply reported.
enum class CheckState { added, unchanged, fixed, reported };

// "new", "unchanged", "fixed" or "reported".
QString checkStateName(CheckState state);

enum class MatchMode {
    // The window's identity: severity, file, line, column and message.
    exact,
    // Severity, file and message; a line or column that moved is no change.
    moved,
};

struct CheckedDiagnostic {
    CheckState state;
    BuildDiagnostic diagnostic;
};

// The outcome of one check: the current build's meaningful diagnostics in
// the parser's order, then the fixed ones in the baseline's order.
struct CheckReport {
    bool hasBaseline = false;
    QList<CheckedDiagnostic> entries;
    // The folder that relative paths are relative to, when there is one.
    std::optional<QString> sourceRoot;

    qsizetype count(CheckState state) const;
    qsizetype count(CheckState state, DiagnosticSeverity severity) const;
};

// Build noise is left out of both lists, as the window leaves it out of its
// comparison.
CheckReport makeCheckReport(const QList<BuildDiagnostic>& current,
                            const std::optional<QList<BuildDiagnostic>>& baseline, MatchMode mode);

// Makes the paths inside folder relative to it; other paths stay as they
// are. Diagnostics are matched afterwards, so builds made in different
// checkouts agree.
void makePathsRelative(QList<BuildDiagnostic>& diagnostics, const QString& folder);

} // namespace corvane
