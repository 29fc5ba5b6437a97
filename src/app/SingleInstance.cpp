#include "SingleInstance.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvane {

namespace {

using namespace std::chrono_literals;

// A request is the magic, the payload's size, then the payload: the
// activation token and the logs' paths in UTF-8, each ended by a zero byte.
// Guards against something else that happens to listen on the path.
constexpr quint32 requestMagic = 0x43525632; // "CRV2"
constexpr qsizetype headerSize = 8;
constexpr char answerByte = '\x06';
// A request is a handful of paths; anything larger is not one of ours.
constexpr quint32 requestSizeLimit = 256 * 1024;
// A later start writes its request at once; a connection that has not done
// so by then is dropped.
constexpr std::chrono::milliseconds connectionDeadline = 2s;
// Connections served at once; more wait in the listen queue, not in
// descriptors of ours.
constexpr int openConnectionLimit = 16;
// How often a start looks again while the holder of the lock is on its way
// to listening.
constexpr std::chrono::milliseconds holderPollInterval = 50ms;

int remainingMilliseconds(const QDeadlineTimer& deadline)
{
    return static_cast<int>(std::max<qint64>(deadline.remainingTime(), 0));
}

// A folder only this user can reach: a socket in it cannot be taken over or
// answered by anyone else.
bool isPrivateFolder(const QString& path, bool followLinks)
{
    struct stat status {};
    const QByteArray name = QFile::encodeName(path);
    if ((followLinks ? ::stat(name.constData(), &status) : ::lstat(name.constData(), &status)) != 0)
        return false;
    return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
}

QString privateTemporaryFolder()
{
    const QString folder = QDir(QDir::tempPath()).filePath(QStringLiteral("corvane-%1").arg(::geteuid()));
    // Someone else may have made it first: then it is refused below.
    ::mkdir(QFile::encodeName(folder).constData(), 0700);
    return isPrivateFolder(folder, false) ? folder : QString();
}

QByteArray encodeRequest(const QStringList& logs, const QString& activationToken)
{
    QByteArray payload = activationToken.toUtf8() + '\0';
    for (const QString& log : logs)
        payload += log.toUtf8() + '\0';
    QByteArray request(headerSize, '\0');
    qToBigEndian(requestMagic, request.data());
    qToBigEndian(quint32(payload.size()), request.data() + 4);
    return request + payload;
}

} // namespace

SingleInstance::SingleInstance(const QString& socketPath, const QString& lockPath, QObject* parent)
    : QObject(parent), m_socketPath(socketPath), m_lockPath(lockPath)
{}

SingleInstance::~SingleInstance()
{
    // Closing removes the socket file, so the next start finds nothing stale.
    if (m_server)
        m_server->close();
    if (m_lockFd >= 0) {
        ::ftruncate(m_lockFd, 0);
        ::close(m_lockFd);
    }
}

QString SingleInstance::socketPathFor(const QString& dataFolder)
{
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !isPrivateFolder(folder, true))
        folder = privateTemporaryFolder();
    if (folder.isEmpty())
        return {};
    const QByteArray hash =
        QCryptographicHash::hash(QDir::cleanPath(dataFolder).toUtf8(), QCryptographicHash::Sha256).toHex();
    // Short, because a socket path has to fit in about a hundred bytes.
    return QDir(folder).filePath(QStringLiteral("corvane-") + QString::fromLatin1(hash.left(16)));
}

QString SingleInstance::lockPathFor(const QString& dataFolder)
{
    // Not a relative path: that would put the lock in whatever folder the
    // program was started from.
    if (dataFolder.isEmpty())
        return {};
    return QDir(dataFolder).filePath(QStringLiteral("Corvane/.lock"));
}

SingleInstance::Lock SingleInstance::takeLock()
{
    if (m_lockPath.isEmpty())
        return Lock::unavailable;
    QDir().mkpath(QFileInfo(m_lockPath).path());
    const int fd = ::open(QFile::encodeName(m_lockPath).constData(),
                          O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600);
    if (fd < 0)
        return Lock::unavailable;
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(fd);
        return Lock::unavailable;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        ::close(fd);
        return reason == EWOULDBLOCK ? Lock::heldByOther : Lock::unavailable;
    }
    // What a process before this one wrote is no longer true.
    ::ftruncate(fd, 0);
    m_lockFd = fd;
    return Lock::taken;
}

std::optional<QString> SingleInstance::holderSocket() const
{
    const int fd = ::open(QFile::encodeName(m_lockPath).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return std::nullopt;
    char buffer[4096];
    const ssize_t size = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    // Complete only with its line feed: the holder may be writing it just now.
    if (size <= 0 || buffer[size - 1] != '\n')
        return std::nullopt;
    return QFile::decodeName(QByteArray(buffer, size - 1));
}

void SingleInstance::publishSocket(const QString& path)
{
    if (m_lockFd < 0)
        return;
    const QByteArray line = QFile::encodeName(path) + '\n';
    ::ftruncate(m_lockFd, 0);
    if (::pwrite(m_lockFd, line.constData(), size_t(line.size()), 0) != line.size())
        ::ftruncate(m_lockFd, 0);
}

SingleInstance::Claim SingleInstance::claim(const QStringList& logs, const QString& activationToken,
                                            std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline(timeout);
    const auto handOverTo = [&](const QString& socketPath) {
        return handOver(socketPath, logs, activationToken, std::chrono::milliseconds(remainingMilliseconds(deadline)));
    };
    for (;;) {
        switch (takeLock()) {
        case Lock::taken:
            return Claim::first;
        case Lock::unavailable:
            // No lock can be made (a read-only data folder): that must not
            // keep the program from starting, but a running one still gets
            // the logs when it listens where it would.
            switch (handOverTo(m_socketPath)) {
            case HandOver::taken:
                return Claim::handedOver;
            case HandOver::noAnswer:
                return Claim::noAnswer;
            case HandOver::noServer:
                return Claim::first;
            }
            break;
        case Lock::heldByOther:
            if (const std::optional<QString> holder = holderSocket()) {
                if (holder->isEmpty())
                    return Claim::noAnswer;
                switch (handOverTo(*holder)) {
                case HandOver::taken:
                    return Claim::handedOver;
                case HandOver::noAnswer:
                    return Claim::noAnswer;
                case HandOver::noServer:
                    break;
                }
            }
            break;
        }
        if (deadline.hasExpired())
            return Claim::noAnswer;
        QThread::msleep(
            static_cast<unsigned long>(std::min<qint64>(holderPollInterval.count(), remainingMilliseconds(deadline))));
    }
}

SingleInstance::HandOver SingleInstance::handOver(const QString& socketPath, const QStringList& logs,
                                                  const QString& activationToken, std::chrono::milliseconds timeout)
{
    if (socketPath.isEmpty())
        return HandOver::noServer;
    const QDeadlineTimer deadline(timeout);
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    // Refused or missing at once when nothing listens, so this rarely waits.
    if (!socket.waitForConnected(remainingMilliseconds(deadline)))
        return socket.error() == QLocalSocket::SocketTimeoutError ? HandOver::noAnswer : HandOver::noServer;

    socket.write(encodeRequest(logs, activationToken));
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
    if (m_socketPath.isEmpty()) {
        publishSocket(QString());
        return false;
    }
    if (!m_server) {
        m_server = new QLocalServer(this);
        m_server->setSocketOptions(QLocalServer::UserAccessOption);
        m_server->setMaxPendingConnections(openConnectionLimit);
        connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    }
    // Only the holder of the lock listens, so whatever stands at the path is
    // a leftover of a process that could not close its socket (killed, or
    // crashed). Qt replaces it when binding with access options, but that is
    // not promised, and a plain bind() would fail on it.
    QLocalServer::removeServer(m_socketPath);
    const bool listening = m_server->listen(m_socketPath);
    publishSocket(listening ? m_socketPath : QString());
    return listening;
}

void SingleInstance::acceptConnections()
{
    while (m_openConnections < openConnectionLimit) {
        QLocalSocket* socket = m_server->nextPendingConnection();
        if (!socket)
            return;
        ++m_openConnections;
        connect(socket, &QObject::destroyed, this, [this] {
            --m_openConnections;
            // Connections left waiting raise no new signal of their own.
            QMetaObject::invokeMethod(this, &SingleInstance::acceptConnections, Qt::QueuedConnection);
        });
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
        socket->setReadBufferSize(headerSize + requestSizeLimit);
        QTimer::singleShot(connectionDeadline, socket, [socket] {
            socket->abort();
            socket->deleteLater();
        });
        // The whole request may have arrived with the connection.
        readRequest(socket);
        // A client that left while waiting in the queue has sent its
        // disconnected signal before anyone listened for it.
        if (socket->state() == QLocalSocket::UnconnectedState)
            socket->deleteLater();
    }
}

void SingleInstance::readRequest(QLocalSocket* socket)
{
    if (socket->bytesAvailable() < headerSize)
        return;
    const QByteArray header = socket->peek(headerSize);
    const quint32 size = qFromBigEndian<quint32>(header.constData() + 4);
    if (qFromBigEndian<quint32>(header.constData()) != requestMagic || size > requestSizeLimit) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    if (socket->bytesAvailable() < headerSize + size)
        return;
    socket->skip(headerSize);
    const QByteArray payload = socket->read(size);
    if (!payload.endsWith('\0')) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    QStringList fields = QString::fromUtf8(payload.chopped(1)).split(QChar(u'\0'));
    const QString activationToken = fields.takeFirst();
    Q_EMIT activationRequested(fields, activationToken);
    socket->putChar(answerByte);
    socket->flush();
    socket->disconnectFromServer();
}

} // namespace corvane
