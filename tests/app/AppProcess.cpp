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
    const QString folder = environment.root() + QStringLiteral("/run");
    QDir().mkpath(folder);
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return folder;
}

QString instanceSocketPath(const TestEnvironment& environment)
{
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    const bool wasSet = qEnvironmentVariableIsSet("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", runtimeFolder(environment).toLocal8Bit());
    const QString path = SingleInstance::socketPathFor(environment.dataHome());
    if (wasSet)
        qputenv("XDG_RUNTIME_DIR", saved);
    else
        qunsetenv("XDG_RUNTIME_DIR");
    return path;
}

QList<BuildSession> savedHistory()
{
    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    return loaded ? loaded.value() : QList<BuildSession>{};
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents();
        QThread::msleep(50);
    }
    return true;
}

QList<BuildSession> waitForHistory(qsizetype count, std::chrono::milliseconds timeout)
{
    QList<BuildSession> sessions;
    waitUntil(
        [&] {
            sessions = savedHistory();
            return sessions.size() >= count;
        },
        timeout);
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
