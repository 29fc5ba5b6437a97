#pragma once

#include "DiagnosticSeverity.h"

#include <QSet>
#include <QString>

#include <array>

namespace corvane {

// The choices of the header's severity menu. The store keeps a set of
// severities; the menu offers four of the sets and shows every other set as
// its first choice.
enum class SeverityFilterMode { errorsAndWarnings, errorsOnly, warningsOnly, all };

inline constexpr std::array<SeverityFilterMode, 4> allSeverityFilterModes{
    SeverityFilterMode::errorsAndWarnings, SeverityFilterMode::errorsOnly, SeverityFilterMode::warningsOnly,
    SeverityFilterMode::all};

// "Errors + Warnings", "Errors", "Warnings", "All".
QString title(SeverityFilterMode mode);
QSet<DiagnosticSeverity> severities(SeverityFilterMode mode);
SeverityFilterMode severityFilterMode(const QSet<DiagnosticSeverity>& filter);

} // namespace corvane
