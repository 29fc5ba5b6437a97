#pragma once

#include "BuildStore.h"
#include "DesktopPlatform.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>
#include <ostream>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace corvane::test {

// Remembers what the commands asked of the desktop and answers from its fields.
class RecordingPlatform : public DesktopPlatform {
public:
    struct Launch {
        QString program;
        QStringList arguments;
    };

    std::optional<QString> chosenFile;
    bool canStartPrograms = true;

    QStringList chooserMessages;
    QList<std::pair<QString, QString>> alerts;
    QString clipboard;
    int clipboardWrites = 0;
    QList<Launch> launches;
    QStringList openedWithDefaultApplication;

    std::optional<QString> chooseLogFile(const QString& message) override
    {
        chooserMessages.append(message);
        return chosenFile;
    }
    void showAlert(const QString& title, const QString& informativeText) override
    {
        alerts.append({title, informativeText});
    }
    void setClipboardText(const QString& text) override
    {
        clipboard = text;
        ++clipboardWrites;
    }
    bool startDetached(const QString& program, const QStringList& arguments) override
    {
        launches.append({program, arguments});
        return canStartPrograms;
    }
    void openWithDefaultApplication(const QString& filePath) override
    {
        openedWithDefaultApplication.append(filePath);
    }
};

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
