#pragma once

#include "BuildDiagnostic.h"
#include "DiagnosticParser.h"
#include "Error.h"

#include <QByteArray>
#include <QIODevice>
#include <QList>
#include <QString>

#include <optional>

namespace corvane {

// Where the check takes its builds from. Every failure is one line for the
// user, naming the file.
namespace CheckInput {

// The diagnostics of a build log, read as the watcher reads an activity log:
// gzip-compressed or plain, from a file or, for "-", from standardInput. The
// text goes to the parser as it is read and is never held whole.
Result<QList<BuildDiagnostic>> readLogDiagnostics(const QString& path, QIODevice& standardInput,
                                                  const DiagnosticParser& parser);

// The diagnostics a file written with --write-baseline holds.
Result<QList<BuildDiagnostic>> readBaselineFile(const QString& path);

// The diagnostics of the newest session of project in the window's history:
// historyFile when given, the window's own file otherwise.
Result<QList<BuildDiagnostic>> readHistoryBaseline(const QString& project, const std::optional<QString>& historyFile);

} // namespace CheckInput

} // namespace corvane
