#include "PersistenceTestSupport.h"

#include <QProcess>

namespace corvane::test {

BuildDiagnostic sampleDiagnostic(int n, DiagnosticSeverity severity)
{
    BuildDiagnostic d;
    d.id = QUuid::createUuid();
    d.severity = severity;
    d.message = QStringLiteral("value 'résumé_%1' was never used ✓").arg(n);
    if (n % 4 != 3)
        d.filePath = QStringLiteral("/Users/dev/App/Sources/View%1.swift").arg(n);
    if (n % 4 < 2)
        d.line = 10 + n;
    if (n % 4 == 0)
        d.column = 5;
    if (n % 4 == 2)
        d.column = 7; // a column without a line, as a stored record may have
    d.rawText = QStringLiteral("View%1.swift:%2: warning: value").arg(n).arg(10 + n);
    // Fractions that no decimal or microsecond rounding would keep.
    d.timestamp = AbsoluteTime{785000000.0 + n + 0.1234567891234};
    return d;
}

BuildSession sampleSession(int n, int diagnosticCount)
{
    BuildSession s;
    s.id = QUuid::createUuid();
    s.startedAt = AbsoluteTime{785000000.0 + 60.0 * n + 1.0 / 3.0};
    for (int i = 0; i < diagnosticCount; ++i)
        s.diagnostics.append(sampleDiagnostic(n * 100 + i, allDiagnosticSeverities[size_t(i % 3)]));
    s.sourceName = QStringLiteral("Example build %1").arg(n);
    s.projectName = n % 2 ? QStringLiteral("Example") : QStringLiteral("Ünïcødé 🔥 App");
    if (n % 3 != 0)
        s.activityLogPath = QStringLiteral("/Users/dev/Library/Developer/Xcode/DerivedData/E/Logs/Build/%1.xcactivitylog").arg(n);
    s.comparison.hasBaseline = n % 2 == 1;
    if (!s.diagnostics.isEmpty())
        s.comparison.newDiagnosticIDs.insert(s.diagnostics.first().id);
    s.comparison.newDiagnosticIDs.insert(QUuid::createUuid());
    s.comparison.fixedDiagnostics.append(sampleDiagnostic(n * 100 + 99, DiagnosticSeverity::error));
    return s;
}

QList<BuildSession> sampleSessions(int count, int diagnosticCount)
{
    QList<BuildSession> sessions;
    for (int i = 0; i < count; ++i)
        sessions.append(sampleSession(i, diagnosticCount));
    return sessions;
}

DiagnosticPreferenceKey sampleKey(const QString& project, std::optional<qint64> line)
{
    DiagnosticPreferenceKey key;
    key.projectName = project;
    key.signature.severity = DiagnosticSeverity::warning;
    key.signature.filePath = QStringLiteral("/Users/dev/App/Sources/Model.swift");
    key.signature.line = line;
    key.signature.message = QStringLiteral("'init()' is deprecated");
    return key;
}

QByteArray bigEndian(quint64 value, int size)
{
    QByteArray bytes(size, '\0');
    for (int i = size - 1; i >= 0; --i) {
        bytes[i] = char(value & 0xFF);
        value >>= 8;
    }
    return bytes;
}

QByteArray RawPropertyList::bytes() const
{
    QByteArray out("bplist00");
    std::vector<quint64> offsets;
    for (const QByteArray& object : objects) {
        offsets.push_back(quint64(out.size()));
        out += object;
    }
    const quint64 table = quint64(out.size());
    for (size_t i = 0; i < offsets.size(); ++i) {
        const bool overridden = i < offsetOverrides.size() && offsetOverrides[i];
        out += bigEndian(overridden ? *offsetOverrides[i] : offsets[i], offsetSize);
    }
    out += QByteArray(6, '\0');
    out += char(offsetSize);
    out += char(referenceSize);
    out += bigEndian(objectCount.value_or(objects.size()), 8);
    out += bigEndian(top, 8);
    out += bigEndian(tableOffset.value_or(table), 8);
    return out;
}

PythonResult runPython(const QString& script, const QStringList& arguments)
{
    QProcess python;
    python.start(QStringLiteral("python3"), QStringList{QStringLiteral("-c"), script} + arguments);
    PythonResult result;
    result.started = python.waitForStarted(30000);
    if (!result.started)
        return result;
    python.closeWriteChannel();
    python.waitForFinished(60000);
    result.exitCode = python.exitStatus() == QProcess::NormalExit ? python.exitCode() : -1;
    result.output = python.readAllStandardOutput();
    result.errors = python.readAllStandardError();
    return result;
}

} // namespace corvane::test
