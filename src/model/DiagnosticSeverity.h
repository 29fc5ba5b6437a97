#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

namespace corvane {

// Declared in display order: errors sort before warnings before notes.
enum class DiagnosticSeverity { error, warning, note };

inline constexpr std::array<DiagnosticSeverity, 3> allDiagnosticSeverities{
    DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note};

// "error", "warning" or "note": the word compilers print and the stored form.
QString rawValue(DiagnosticSeverity severity);

// Only the three exact lower-case raw values make a severity.
std::optional<DiagnosticSeverity> severityFromRawValue(QStringView text);

} // namespace corvane
