#pragma once

#include "BuildDiagnostic.h"

#include <QList>
#include <QSet>
#include <QUuid>

#include <optional>

namespace corvane {

// A build compared with the previous build of the same project.
struct BuildComparison {
    bool hasBaseline = false;
    QSet<QUuid> newDiagnosticIDs;
    // The previous build's own records of what this build no longer reports.
    QList<BuildDiagnostic> fixedDiagnostics;

    // Nothing to compare with.
    static BuildComparison empty() { return {}; }

    bool operator==(const BuildComparison&) const = default;
};

inline size_t qHash(const BuildComparison& c, size_t seed = 0)
{
    seed = ::qHash(c.hasBaseline, seed);
    seed = qHashRangeCommutative(c.newDiagnosticIDs.cbegin(), c.newDiagnosticIDs.cend(), seed);
    return qHashRange(c.fixedDiagnostics.cbegin(), c.fixedDiagnostics.cend(), seed);
}

// Compares a build with the previous one by signature, build noise left out:
// what the current list has that the previous lacks is new, and the previous
// list's own records of what the current one lacks are fixed. Without a
// previous list there is no baseline.
BuildComparison compareDiagnostics(const QList<BuildDiagnostic>& current,
                                   const std::optional<QList<BuildDiagnostic>>& previous);

// Like compareDiagnostics, and each meaningful diagnostic of current that has
// a previous one's signature takes that one's message, file path and, when
// equal, raw text: equal values, but the previous build's storage, so that
// successive builds of a project hold the texts they repeat once.
BuildComparison compareDiagnosticsSharingTexts(QList<BuildDiagnostic>& current,
                                               const std::optional<QList<BuildDiagnostic>>& previous);

// Like compareDiagnostics, but a diagnostic whose line or column moved is the
// same one: diagnostics of equal severity, file and message are paired one to
// one, those at the same place first and the rest in list order, so that
// three warnings where the previous build had two still make one new.
BuildComparison compareDiagnosticsAllowingMoves(const QList<BuildDiagnostic>& current,
                                                const std::optional<QList<BuildDiagnostic>>& previous);

} // namespace corvane
