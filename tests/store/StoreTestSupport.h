#pragma once

#include "BuildStore.h"
#include "RecordingPlatform.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

#include <gtest/gtest.h>

namespace corvane::test {

// Where Xcode would write a build log of the project.
inline QString activityLogPath(const QString& project, const QString& home = QStringLiteral("/Users/dev"))
{
    return home + QStringLiteral("/Library/Developer/Xcode/DerivedData/") + project
        + QStringLiteral("-bxqgrvhdkslrtw/Logs/Build/") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()
        + QStringLiteral(".xcactivitylog");
}

// Log lines as the compiler prints them.
inline QString located(const QString& file, int line, int column, const QString& severity, const QString& message)
{
    return QStringLiteral("/Users/dev/Code/App/Sources/%1:%2:%3: %4: %5")
        .arg(file)
        .arg(line)
        .arg(column)
        .arg(severity, message);
}
inline QString errorAt(const QString& file, int line, const QString& message)
{
    return located(file, line, 5, QStringLiteral("error"), message);
}
inline QString warningAt(const QString& file, int line, const QString& message)
{
    return located(file, line, 5, QStringLiteral("warning"), message);
}
inline QString noteAt(const QString& file, int line, const QString& message)
{
    return located(file, line, 5, QStringLiteral("note"), message);
}
inline QString noiseNote() { return QStringLiteral("note: Target dependency graph (3 targets)"); }

// A log as the activity log reader hands it over: lines ended by CR.
inline QByteArray logText(const QStringList& lines)
{
    return (QStringLiteral("Build description signature: 1f2e\r") + lines.join(u'\r') + u'\r').toUtf8();
}

inline const BuildDiagnostic* findByMessage(const QList<BuildDiagnostic>& list, const QString& message)
{
    for (const BuildDiagnostic& d : list) {
        if (d.message == message)
            return &d;
    }
    return nullptr;
}

// The active session's diagnostic with this message; fails the test when there is none.
inline BuildDiagnostic activeDiagnostic(const BuildStore& store, const QString& message)
{
    const std::optional<BuildSession> session = store.activeSession();
    const BuildDiagnostic* found = session ? findByMessage(session->diagnostics, message) : nullptr;
    EXPECT_TRUE(found) << message.toStdString();
    return found ? *found : BuildDiagnostic{};
}

inline QString selectedMessage(const BuildStore& store)
{
    const std::optional<BuildDiagnostic> selected = store.selectedDiagnostic();
    return selected ? selected->message : QStringLiteral("<nothing selected>");
}

inline QString activeProject(const BuildStore& store)
{
    const std::optional<BuildSession> session = store.activeSession();
    return session ? session->projectName : QStringLiteral("<no active session>");
}

inline QStringList messages(const QList<BuildDiagnostic>& list)
{
    QStringList result;
    for (const BuildDiagnostic& d : list)
        result.append(d.message);
    return result;
}

} // namespace corvane::test
