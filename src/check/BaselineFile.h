#pragma once

#include "BuildDiagnostic.h"
#include "Error.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

namespace corvane {

// The diagnostics of one build, kept between runs of the check in a small
// JSON file meant to live in a repository or a CI cache:
//
//   {
//       "diagnostics": [
//           {"column": 17, "file": "Sources/App/ContentView.swift", "line": 48,
//            "message": "cannot find 'widgetTitle' in scope", "severity": "error"}
//       ],
//       "format": "corvane-check-baseline",
//       "version": 1
//   }
//
// "file", "line" and "column" are left out when the diagnostic has none. The
// records are sorted by file, line, column, severity and message, so the file
// of an unchanged build is byte for byte the same and a diff shows only what
// changed.
namespace BaselineFile {

inline constexpr qint64 version = 1;
inline const QString formatName = QStringLiteral("corvane-check-baseline");

QByteArray encode(const QList<BuildDiagnostic>& diagnostics);
// Fails with a one-line description on anything but a well-formed file of
// this version.
Result<QList<BuildDiagnostic>> decode(QByteArrayView bytes);

} // namespace BaselineFile

} // namespace corvane
