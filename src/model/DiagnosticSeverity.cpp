#include "DiagnosticSeverity.h"

namespace corvane {

QString rawValue(DiagnosticSeverity severity)
{
    switch (severity) {
    case DiagnosticSeverity::error:
        return QStringLiteral("error");
    case DiagnosticSeverity::warning:
        return QStringLiteral("warning");
    case DiagnosticSeverity::note:
        return QStringLiteral("note");
    }
    return {};
}

std::optional<DiagnosticSeverity> severityFromRawValue(QStringView text)
{
    for (const DiagnosticSeverity severity : allDiagnosticSeverities) {
        if (text == rawValue(severity))
            return severity;
    }
    return std::nullopt;
}

} // namespace corvane
