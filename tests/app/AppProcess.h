#pragma once

#include "BuildSession.h"
#include "TestEnvironment.h"

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

namespace corvane::test {

// The real program, started headless in a test environment's home and data
// folders, with its own runtime folder for the instance socket. Killed at the
// end of the test, whatever the outcome.
class AppProcess {
public:
    explicit AppProcess(const TestEnvironment& environment, const QString& workingDirectory = {});
    ~AppProcess();
    AppProcess(const AppProcess&) = delete;
    AppProcess& operator=(const AppProcess&) = delete;

    void start(const QStringList& arguments = {});
    bool waitForStarted();
    // True when the process ended within the time.
    bool waitForExit(std::chrono::milliseconds timeout);
    bool running() const { return m_process.state() == QProcess::Running; }
    int exitCode() const { return m_process.exitCode(); }
    QProcess::ExitStatus exitStatus() const { return m_process.exitStatus(); }
    QByteArray standardOutput() { return m_process.readAllStandardOutput(); }
    QByteArray standardError() { return m_process.readAllStandardError(); }
    // SIGKILL: the program gets no chance to clean up.
    void kill();

    QProcess& process() { return m_process; }

private:
    QProcess m_process;
};

// The runtime folder AppProcess hands the program (created).
QString runtimeFolder(const TestEnvironment& environment);
// Where the program started by AppProcess keeps its instance socket.
QString instanceSocketPath(const TestEnvironment& environment);

// The history the program saved in the environment's app folder (empty when
// there is none or it cannot be read).
QList<BuildSession> savedHistory();
// Polls the history until it holds `count` sessions or the time is up.
QList<BuildSession> waitForHistory(qsizetype count, std::chrono::milliseconds timeout);

// A plain-text build log with one warning of the given message.
QByteArray logWithWarning(const QString& message);
QStringList sourceNames(const QList<BuildSession>& sessions);

} // namespace corvane::test
