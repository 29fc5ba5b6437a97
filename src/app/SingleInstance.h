#pragma once

#include <QLockFile>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>

class QLocalServer;
class QLocalSocket;

namespace corvane {

// Keeps to one running program per user and data folder. A later start hands
// its command line to the running process through a local socket and ends,
// so two watchers never capture the same logs into the same history.
//
// Two starts at the same moment, and a socket left behind by a process that
// was killed, are both settled by a lock file that a start holds from its
// first look for a running process until it listens itself.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Claim {
        // No other process runs; this one holds the lock until listen().
        first,
        // A running process took the logs; this one should end.
        handedOver,
        // A process runs but did not answer in time.
        noAnswer,
    };

    explicit SingleInstance(const QString& socketPath, QObject* parent = nullptr);
    ~SingleInstance() override;

    // The socket of every process that keeps its files in `dataFolder`: in the
    // user's runtime folder when there is one, else the temporary folder, named
    // after the data folder so that a program run with another data folder
    // (a test with its own home folder) is a separate instance.
    static QString socketPathFor(const QString& dataFolder);

    // Blocks for at most `timeout` and needs no event loop, so it can run
    // before the window system is touched. `activationToken` is the one the
    // launcher gave this start (Wayland's XDG_ACTIVATION_TOKEN): only with it
    // may the running window take the focus.
    Claim claim(const QStringList& logs, const QString& activationToken, std::chrono::milliseconds timeout);

    // Opens the socket for later starts and releases the lock. Answers come from
    // the event loop. False when the socket cannot be opened; the program then
    // simply runs on its own.
    bool listen();

    QString socketPath() const { return m_socketPath; }

Q_SIGNALS:
    // A later start asked for the window, with the absolute paths of the logs
    // it was given (often none) and its activation token (often empty). It has
    // its answer by the time this arrives.
    void activationRequested(const QStringList& logs, const QString& activationToken);

private:
    enum class HandOver { noServer, taken, noAnswer };

    HandOver handOver(const QStringList& logs, const QString& activationToken, std::chrono::milliseconds timeout);
    void acceptConnections();
    void readRequest(QLocalSocket* socket);

    QString m_socketPath;
    QLockFile m_lock;
    QLocalServer* m_server = nullptr;
};

} // namespace corvane
