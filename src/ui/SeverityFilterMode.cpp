#include "SeverityFilterMode.h"

namespace corvane {

QString title(SeverityFilterMode mode)
{
    switch (mode) {
    case SeverityFilterMode::errorsAndWarnings:
        return QStringLiteral("Errors + Warnings");
    case SeverityFilterMode::errorsOnly:
        return QStringLiteral("Errors");
    case SeverityFilterMode::warningsOnly:
        return QStringLiteral("Warnings");
    case SeverityFilterMode::all:
        return QStringLiteral("All");
    }
    return {};
}

QSet<DiagnosticSeverity> severities(SeverityFilterMode mode)
{
    switch (mode) {
    case SeverityFilterMode::errorsAndWarnings:
        return {DiagnosticSeverity::error, DiagnosticSeverity::warning};
    case SeverityFilterMode::errorsOnly:
        return {DiagnosticSeverity::error};
    case SeverityFilterMode::warningsOnly:
        return {DiagnosticSeverity::warning};
    case SeverityFilterMode::all:
        return {DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note};
    }
    return {};
}

SeverityFilterMode severityFilterMode(const QSet<DiagnosticSeverity>& filter)
{
    // Whole sets only: a set the menu cannot produce, such as errors with
    // notes or nothing at all, reads as the first choice.
    for (auto mode : {SeverityFilterMode::errorsOnly, SeverityFilterMode::warningsOnly, SeverityFilterMode::all}) {
        if (filter == severities(mode))
            return mode;
    }
    return SeverityFilterMode::errorsAndWarnings;
}

} // namespace corvane
