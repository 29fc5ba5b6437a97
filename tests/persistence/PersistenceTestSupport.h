#pragma once

#include "BuildSession.h"
#include "DiagnosticPreferenceKey.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace corvane::test {

// A diagnostic with every field set; vary n to make distinct ones.
BuildDiagnostic sampleDiagnostic(int n, DiagnosticSeverity severity = DiagnosticSeverity::warning);
// A session whose diagnostics, comparison and optionals exercise every field:
// some diagnostics lack a file, a line or a column, texts hold non-ASCII.
BuildSession sampleSession(int n, int diagnosticCount = 3);
QList<BuildSession> sampleSessions(int count, int diagnosticCount = 2);
DiagnosticPreferenceKey sampleKey(const QString& project, std::optional<qint64> line);

// Assembles a binary property list from raw objects, for files no correct
// writer would make. References inside the objects are one byte each unless
// referenceSize says otherwise; trailer fields can be overridden.
struct RawPropertyList {
    RawPropertyList() = default;
    explicit RawPropertyList(std::vector<QByteArray> objects) : objects(std::move(objects)) {}

    std::vector<QByteArray> objects;
    quint64 top = 0;
    int referenceSize = 1;
    int offsetSize = 1;
    std::optional<quint64> objectCount;
    std::optional<quint64> tableOffset;
    std::vector<std::optional<quint64>> offsetOverrides; // by object index

    QByteArray bytes() const;
};

QByteArray bigEndian(quint64 value, int size);

struct PythonResult {
    bool started = false;
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};
// Runs python3 from PATH with a script and arguments; no shell.
PythonResult runPython(const QString& script, const QStringList& arguments);

} // namespace corvane::test
