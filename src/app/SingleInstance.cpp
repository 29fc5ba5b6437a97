#include "SingleInstance.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>

#include <algorithm>

namespace corvane {

namespace {

// Guards against something else that happens to listen on the path.
constexpr quint32 requestMagic = 0x43525631; // "CRV1"
constexpr char answerByte = '\x06';
// A request is a handful of paths; anything larger is not one of ours.
constexpr qint64 requestSizeLimit = 1 << 20;
constexpr QDataStream::Version streamVersion = QDataStream::Qt_6_4;

int remainingMilliseconds(const QDeadlineTimer& deadline)
{
    return static_cast<int>(std::max<qint64>(deadline.remainingTime(), 0));
}

} // namespace

SingleInstance::SingleInstance(const QString& socketPath, QObject* parent)
    : QObject(parent), m_socketPath(socketPath), m_lock(socketPath + QStringLiteral(".lock"))
{
}

SingleInstance::~SingleInstance()
{
    // Closing removes the socket file, so the next start finds nothing stale.
    if (m_server)
        m_server->close();
}

QString SingleInstance::socketPathFor(const QString& dataFolder)
{
    // The runtime folder is the user's own; the temporary folder is only the
    // fallback where there is none (the socket itself is then made private).
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = QDir::tempPath();
    const QByteArray hash =
        QCryptographicHash::hash(QDir::cleanPath(dataFolder).toUtf8(), QCryptographicHash::Sha256).toHex();
    // Short, because a socket path has to fit in about a hundred bytes.
    return QDir(folder).filePath(QStringLiteral("corvane-") + QString::fromLatin1(hash.left(16)));
}

SingleInstance::Claim SingleInstance::claim(const QStringList& logs, const QString& activationToken,
                                            std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline(timeout);
    // Waits while another start is between its own look and its listen().
    const bool locked = m_lock.tryLock(timeout);
    // A lock that cannot be written at all (a read-only folder) must not keep
    // the program from starting; only a lock held by a live process counts.
    const bool heldByOther = !locked && m_lock.error() == QLockFile::LockFailedError;

    switch (handOver(logs, activationToken, std::chrono::milliseconds(remainingMilliseconds(deadline)))) {
    case HandOver::taken:
        if (locked)
            m_lock.unlock();
        return Claim::handedOver;
    case HandOver::noAnswer:
        if (locked)
            m_lock.unlock();
        return Claim::noAnswer;
    case HandOver::noServer:
        break;
    }
    // Nobody listens, yet another start has held the lock all this time: that
    // start hangs, and starting beside it could make two watchers.
    if (heldByOther)
        return Claim::noAnswer;
    return Claim::first;
}

SingleInstance::HandOver SingleInstance::handOver(const QStringList& logs, const QString& activationToken,
                                                  std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline(timeout);
    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    // Refused or missing at once when nothing listens, so this rarely waits.
    if (!socket.waitForConnected(remainingMilliseconds(deadline)))
        return HandOver::noServer;

    QByteArray request;
    {
        QDataStream out(&request, QIODevice::WriteOnly);
        out.setVersion(streamVersion);
        out << requestMagic << logs << activationToken;
    }
    socket.write(request);
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(remainingMilliseconds(deadline)))
            return HandOver::noAnswer;
    }
    while (socket.bytesAvailable() < 1) {
        if (!socket.waitForReadyRead(remainingMilliseconds(deadline)))
            return HandOver::noAnswer;
    }
    char answer = 0;
    socket.getChar(&answer);
    return answer == answerByte ? HandOver::taken : HandOver::noAnswer;
}

bool SingleInstance::listen()
{
    if (!m_server) {
        m_server = new QLocalServer(this);
        m_server->setSocketOptions(QLocalServer::UserAccessOption);
        connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    }
    // claim() found nobody listening, so whatever stands at the path is a
    // leftover of a process that could not close its socket (killed, or
    // crashed). Qt replaces it when binding with access options, but that is
    // not promised, and a plain bind() would fail on it.
    QLocalServer::removeServer(m_socketPath);
    const bool listening = m_server->listen(m_socketPath);
    if (m_lock.isLocked())
        m_lock.unlock();
    return listening;
}

void SingleInstance::acceptConnections()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
        // The whole request may have arrived with the connection.
        readRequest(socket);
    }
}

void SingleInstance::readRequest(QLocalSocket* socket)
{
    QDataStream in(socket);
    in.setVersion(streamVersion);
    in.startTransaction();
    quint32 magic = 0;
    QStringList logs;
    QString activationToken;
    in >> magic;
    if (in.status() == QDataStream::Ok && magic != requestMagic) {
        in.abortTransaction();
        socket->abort();
        return;
    }
    in >> logs >> activationToken;
    if (!in.commitTransaction()) {
        // Incomplete: wait for the rest, unless it is not a request at all.
        if (in.status() != QDataStream::ReadPastEnd || socket->bytesAvailable() > requestSizeLimit)
            socket->abort();
        return;
    }
    Q_EMIT activationRequested(logs, activationToken);
    socket->putChar(answerByte);
    socket->flush();
    socket->disconnectFromServer();
}

} // namespace corvane
