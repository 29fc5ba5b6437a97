#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

class QLocalServer;
class QLocalSocket;

namespace corvane {

// Keeps to one running program per data folder. A later start hands its
// command line to the running process through a local socket and ends, so
// two watchers never capture the same logs into the same history.
//
// Who runs is settled by a lock file inside the data folder that the running
// process holds for its whole life, so the rule holds whatever runtime folder
// each process was given; the system drops the lock of a process that dies.
// Once it listens, the holder writes its socket's path into the lock file,
// where a later start finds it.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Claim {
        // No other process runs; this one holds the lock for its life.
        first,
        // A running process took the logs; this one should end.
        handedOver,
        // A process runs but did not answer in time.
        noAnswer,
    };

    // `socketPath` may be empty when there is no private folder for it: the
    // program then runs without one, and later starts cannot reach it.
    SingleInstance(const QString& socketPath, const QString& lockPath, QObject* parent = nullptr);
    ~SingleInstance() override;

    // The socket of every process that keeps its files in `dataFolder`: in the
    // user's runtime folder when there is one, else in a folder of our own in
    // the temporary folder. Either must be a folder owned by this user that
    // nobody else may enter; when neither is, there is no socket (empty).
    static QString socketPathFor(const QString& dataFolder);
    // The lock file of the program's folder in `dataFolder`.
    static QString lockPathFor(const QString& dataFolder);

    // Blocks for at most `timeout` and needs no event loop, so it can run
    // before the window system is touched. `activationToken` is the one the
    // launcher gave this start (Wayland's XDG_ACTIVATION_TOKEN): only with it
    // may the running window take the focus.
    Claim claim(const QStringList& logs, const QString& activationToken, std::chrono::milliseconds timeout);

    // Opens the socket for later starts and tells them where it is. Answers
    // come from the event loop. False when the socket cannot be opened; the
    // program then simply runs on its own.
    bool listen();

    QString socketPath() const { return m_socketPath; }

Q_SIGNALS:
    // A later start asked for the window, with the absolute paths of the logs
    // it was given (often none) and its activation token (often empty). It has
    // its answer by the time this arrives.
    void activationRequested(const QStringList& logs, const QString& activationToken);

private:
    enum class HandOver { noServer, taken, noAnswer };
    enum class Lock { taken, heldByOther, unavailable };

    Lock takeLock();
    // The socket path the holder of the lock wrote: nothing while it has not
    // listened yet, an empty path when it has no socket.
    std::optional<QString> holderSocket() const;
    void publishSocket(const QString& path);
    HandOver handOver(const QString& socketPath, const QStringList& logs, const QString& activationToken,
                      std::chrono::milliseconds timeout);
    void acceptConnections();
    void readRequest(QLocalSocket* socket);

    QString m_socketPath;
    QString m_lockPath;
    int m_lockFd = -1;
    QLocalServer* m_server = nullptr;
    int m_openConnections = 0;
};

} // namespace corvane
