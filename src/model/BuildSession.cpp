#include "BuildSession.h"

#include <algorithm>

namespace corvane {

namespace {
qsizetype countOf(const QList<BuildDiagnostic>& diagnostics, DiagnosticSeverity severity)
{
    return std::count_if(diagnostics.cbegin(), diagnostics.cend(),
                         [severity](const BuildDiagnostic& d) { return d.severity == severity; });
}
} // namespace

qsizetype BuildSession::errorCount() const
{
    return countOf(diagnostics, DiagnosticSeverity::error);
}

qsizetype BuildSession::warningCount() const
{
    return countOf(diagnostics, DiagnosticSeverity::warning);
}

} // namespace corvane
