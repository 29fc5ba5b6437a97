#include "AppProcess.h"

#include "BuildHistoryPersistence.h"
#include "SingleInstance.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QThread>

namespace corvane::test {

AppProcess::AppProcess(const TestEnvironment& environment, const QString& workingDirectory)
{
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    variables.insert(QStringLiteral("HOME"), environment.home());
    variables.insert(QStringLiteral("XDG_DATA_HOME"), environment.dataHome());
    variables.insert(QStringLiteral("XDG_CONFIG_HOME"), environment.configHome());
    variables.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeFolder(environment));
    variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    m_process.setProcessEnvironment(variables);
    m_process.setWorkingDirectory(workingDirectory.isEmpty() ? environment.root() : workingDirectory);
}

AppProcess::~AppProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

void AppProcess::start(const QStringList& arguments) { m_process.start(QStringLiteral(CORVANE_APP_PATH), arguments); }

bool AppProcess::waitForStarted() { return m_process.waitForStarted(10000); }

bool AppProcess::waitForExit(std::chrono::milliseconds timeout)
{
    return m_process.state() == QProcess::NotRunning
        || m_process.waitForFinished(static_cast<int>(timeout.count()));
}

void AppProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished(5000);
}

QString runtimeFolder(const TestEnvironment& environment)
{
    return environment.runtimeDir();
}

QString instanceSocketPath(const TestEnvironment& environment)
{
    // The environment points XDG_RUNTIME_DIR where the program's is.
    return SingleInstance::socketPathFor(environment.dataHome());
}

QList<BuildSession> savedHistory()
{
    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    return loaded ? loaded.value() : QList<BuildSession>{};
}

QList<BuildSession> waitForHistory(qsizetype count, std::chrono::milliseconds timeout)
{
    QList<BuildSession> sessions;
    waitUntil(
        [&] {
            sessions = savedHistory();
            return sessions.size() >= count;
        },
        int(timeout.count()));
    return sessions;
}

QByteArray logWithWarning(const QString& message)
{
    return (QStringLiteral("CompileSwift normal arm64 /src/App/Model.swift\n/src/App/Model.swift:12:5: warning: ")
            + message + QStringLiteral("\n"))
        .toUtf8();
}

QStringList sourceNames(const QList<BuildSession>& sessions)
{
    QStringList names;
    for (const BuildSession& session : sessions)
        names.append(session.sourceName);
    return names;
}

} // namespace corvane::test
