#include "ActivityLogReader.h"

#include "ReadableTextExtractor.h"
#include "StorageFile.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <limits>
#include <new>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace corvane {

namespace {

const QString gzipProgram = QStringLiteral("/usr/bin/gzip");

std::atomic<bool> readsAbandoned{false};
// How long a read may go without noticing that it was abandoned.
constexpr std::chrono::milliseconds abandonCheckInterval{100};

Error fileError(const QFile& file)
{
    return Error{errorDomain::file, static_cast<int>(file.error()), file.errorString()};
}

Error gzipFailure(int exitStatus, const QByteArray& standardError)
{
    QString detail;
    if (QByteArrayView(standardError).isValidUtf8())
        detail = QString::fromUtf8(standardError);
    else
        detail = QStringLiteral("Unknown gzip error");
    return Error{activityLogErrorDomain, exitStatus,
                 QStringLiteral("Could not decompress Xcode activity log: ") + detail};
}

Error tooLarge(qint64 limit)
{
    return Error{activityLogErrorDomain, activityLogError::tooLarge,
                 QStringLiteral("The Xcode activity log holds more text than Corvane can keep (%1 MB).")
                     .arg(limit / (1024 * 1024))};
}

Error abandoned()
{
    return Error{activityLogErrorDomain, activityLogError::abandoned,
                 QStringLiteral("Reading the Xcode activity log was stopped.")};
}

Error startFailure(const QProcess& gzip)
{
    // gzip is there and runnable, so only the system's limits (descriptors
    // for the pipes, processes) can have kept it from starting.
    const bool lackOfResources = gzip.error() == QProcess::FailedToStart && QFileInfo(gzipProgram).isExecutable();
    return Error{lackOfResources ? activityLogErrorDomain : errorDomain::process,
                 lackOfResources ? activityLogError::lackOfResources : static_cast<int>(gzip.error()),
                 gzip.errorString()};
}

void endProcess(QProcess& process)
{
    process.kill();
    process.waitForFinished(-1);
}

// gzip keeps the uncompressed size modulo 2^32 in the last four bytes. It is a
// hint only: a file of several members or of 4 GiB and more tells a smaller
// size, and a damaged one any size at all, so it never asks for more than
// the text may hold.
qsizetype uncompressedSizeHint(QFile& file, qint64 textLimit)
{
    const qint64 size = file.size();
    if (size < 18 || !file.seek(size - 4))
        return 0;
    const QByteArray trailer = file.read(4);
    if (trailer.size() != 4)
        return 0;
    const auto byte = [&](int i) { return static_cast<quint32>(static_cast<unsigned char>(trailer[i])); };
    const qint64 hint = byte(0) | byte(1) << 8 | byte(2) << 16 | byte(3) << 24;
    // Deflate cannot expand more than about 1032 to 1.
    if (hint > size * 1032 || hint > std::numeric_limits<qsizetype>::max() / 2)
        return 0;
    return static_cast<qsizetype>(std::min(hint, textLimit));
}

// The reservation only saves copying: without the memory for it, the text
// grows as it comes.
ReadableTextExtractor extractorFor(qsizetype expectedBytes)
{
    try {
        return ReadableTextExtractor(expectedBytes);
    } catch (const std::bad_alloc&) {
        return ReadableTextExtractor();
    }
}

// The pipe gzip writes its standard output into. It is ours rather than
// QProcess's so the output can be read straight into one buffer, in gulps as
// large as the pipe holds, without a second copy through QProcess's buffers
// and without being woken for each of gzip's small writes.
class OutputPipe {
public:
    OutputPipe() = default;
    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;
    ~OutputPipe()
    {
        closeWriteEnd();
        if (m_readEnd >= 0)
            ::close(m_readEnd);
    }

    // False with errno set when the system has no descriptors to spare.
    bool open()
    {
        int ends[2];
#if defined(Q_OS_LINUX)
        // Close-on-exec from the start: a process started meanwhile by another
        // thread must not keep the write end, or the end of gzip's output
        // would never show.
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return false;
#else
        if (::pipe(ends) != 0)
            return false;
        for (const int end : ends)
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
#endif
        // Only our end: gzip must be able to wait when the pipe is full.
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
        m_readEnd = ends[0];
        m_writeEnd = ends[1];
#if defined(Q_OS_LINUX)
        // Room for a few milliseconds of gzip's output lets both sides work in
        // large pieces. A refusal (limits lowered by the administrator) just
        // leaves the default.
        ::fcntl(m_writeEnd, F_SETPIPE_SZ, 1 << 20);
        m_capacity = std::max(::fcntl(m_writeEnd, F_GETPIPE_SZ), 0);
#endif
        return true;
    }

    int readEnd() const { return m_readEnd; }
    int writeEnd() const { return m_writeEnd; }
    // Bytes the pipe holds before a writer waits; 0 where the system does not tell.
    qsizetype capacity() const { return m_capacity; }

    // Once the child has its copy: from then on the pipe ends when gzip does.
    void closeWriteEnd()
    {
        if (m_writeEnd >= 0)
            ::close(m_writeEnd);
        m_writeEnd = -1;
    }

private:
    int m_readEnd = -1;
    int m_writeEnd = -1;
    qsizetype m_capacity = 0;
};

// Waking up for every write gzip makes (32 KiB each) costs gzip more than the
// pipe itself: each wake-up is a signal to the other processor, which in a
// virtual machine takes a trip through the host. With a large pipe we rather
// sleep while it fills. The pause lets a producer of up to 1 GB/s fill no more
// than half of the pipe, so gzip hardly ever waits on us; with a small pipe it
// would, and there we wait for data as it comes.
constexpr qsizetype pacedPipeCapacity = 256 * 1024;

std::chrono::microseconds readPause(qsizetype pipeCapacity)
{
    return std::chrono::microseconds(pipeCapacity / 2 / 1000);
}

// Runs gzip on the file and hands each piece of its standard output to sink as
// it arrives, so the decompressed payload never has to be held whole. A sink
// that returns false has had enough: gzip is ended and the run fails as too large.
Result<void> runGzip(const QString& path, qint64 limit, const std::function<bool(QByteArrayView)>& sink)
{
    if (readsAbandoned)
        return abandoned();
    OutputPipe output;
    if (!output.open()) {
        const int cause = errno;
        return Error{activityLogErrorDomain, activityLogError::lackOfResources,
                     QStringLiteral("Could not create a pipe for gzip: %1").arg(qt_error_string(cause))};
    }

    QProcess gzip;
    gzip.setProcessChannelMode(QProcess::SeparateChannels);
    // QProcess sets up standard error and the process; standard output is put
    // in place of /dev/null just before gzip is executed.
    gzip.setStandardOutputFile(QProcess::nullDevice());
    const int writeEnd = output.writeEnd();
    gzip.setChildProcessModifier([writeEnd] { ::dup2(writeEnd, STDOUT_FILENO); });
    gzip.start(gzipProgram, {QStringLiteral("-dc"), path}, QIODevice::ReadOnly);
    const bool started = gzip.waitForStarted(-1);
    output.closeWriteEnd();
    if (!started)
        return startFailure(gzip);
    gzip.setReadChannel(QProcess::StandardError);

    const bool paced = output.capacity() >= pacedPipeCapacity;
    const auto pause = readPause(output.capacity());
    // One buffer for every piece: a new array for each would be allocated,
    // faulted in and freed again hundreds of times on a large log.
    QByteArray buffer(std::max(output.capacity(), qsizetype(1) << 20), Qt::Uninitialized);
    for (;;) {
        if (readsAbandoned) {
            endProcess(gzip);
            return abandoned();
        }
        const ssize_t read = ::read(output.readEnd(), buffer.data(), size_t(buffer.size()));
        if (read > 0) {
            if (!sink(QByteArrayView(buffer.constData(), qsizetype(read)))) {
                endProcess(gzip);
                return tooLarge(limit);
            }
            // Let the pipe fill while we sleep, unless it was found at least
            // half full: then gzip may be waiting on us.
            if (paced && read < output.capacity() / 2)
                std::this_thread::sleep_for(pause);
            continue;
        }
        if (read == 0)
            break;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            const int cause = errno;
            endProcess(gzip);
            return Error{errorDomain::process, QProcess::ReadError,
                         QStringLiteral("Could not read gzip's output: %1").arg(qt_error_string(cause))};
        }
        // Empty: gzip is reading its file or has more work than output. Wake up
        // now and then to see whether the program is quitting, and take in
        // gzip's standard error, which it could otherwise fill and stall on.
        pollfd ready{output.readEnd(), POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(abandonCheckInterval.count())) == 0)
            gzip.waitForReadyRead(0);
    }
    gzip.waitForFinished(-1);

    const QByteArray standardError = gzip.readAllStandardError();
    if (gzip.exitStatus() == QProcess::CrashExit)
        return gzipFailure(gzip.exitCode() != 0 ? gzip.exitCode() : -1, standardError);
    if (gzip.exitCode() != 0)
        return gzipFailure(gzip.exitCode(), standardError);
    return {};
}

// Opens a log and reads its first two bytes, enough to tell gzip.
Result<QByteArray> openLog(QFile& file, const QString& path)
{
    int openErrno = 0;
    if (const Result<void> opened = StorageFile::openRegularFile(file, path, &openErrno); !opened) {
        if (openErrno == EMFILE || openErrno == ENFILE || openErrno == ENOMEM)
            return Error{activityLogErrorDomain, activityLogError::lackOfResources, opened.error().description};
        return opened.error();
    }
    QByteArray head = file.read(2);
    if (file.error() != QFileDevice::NoError)
        return fileError(file);
    return head;
}

Result<QByteArray> readLimitedActivityLog(const QString& path, qint64 textLimit)
{
    QFile file;
    const Result<QByteArray> opened = openLog(file, path);
    if (!opened)
        return opened.error();
    const QByteArray& head = opened.value();
    if (head.isEmpty())
        return QByteArray();

    if (!hasGzipSignature(head)) {
        // The text is never longer than the file (one line feed aside).
        if (file.size() > textLimit)
            return tooLarge(textLimit);
        QByteArray bytes = head + file.readAll();
        if (file.error() != QFileDevice::NoError)
            return fileError(file);
        return extractReadableText(bytes);
    }

    ReadableTextExtractor extractor = extractorFor(uncompressedSizeHint(file, textLimit));
    file.close();
    const Result<void> run = runGzip(path, textLimit, [&](QByteArrayView chunk) {
        extractor.append(chunk);
        return extractor.size() <= textLimit;
    });
    if (!run)
        return run.error();
    return extractor.finish();
}

Result<void> readPieces(const QString& path, qint64 textLimit, const std::function<void(QByteArrayView)>& textSink)
{
    QFile file;
    const Result<QByteArray> opened = openLog(file, path);
    if (!opened)
        return opened.error();
    ReadableTextExtractor extractor;
    qint64 passed = 0;
    // False once the text is longer than the limit.
    const auto pass = [&](QByteArrayView chunk) {
        extractor.append(chunk);
        passed += extractor.text().size();
        if (passed + extractor.size() > textLimit)
            return false;
        if (!extractor.text().isEmpty())
            textSink(extractor.text());
        extractor.discardText();
        return true;
    };
    if (!hasGzipSignature(opened.value())) {
        if (file.size() > textLimit)
            return tooLarge(textLimit);
        pass(opened.value());
        QByteArray chunk(qsizetype(1) << 20, Qt::Uninitialized);
        for (qint64 read; (read = file.read(chunk.data(), chunk.size())) > 0;)
            pass(QByteArrayView(chunk.constData(), qsizetype(read)));
        if (file.error() != QFileDevice::NoError)
            return fileError(file);
    } else {
        file.close();
        const Result<void> run = runGzip(path, textLimit, pass);
        if (!run)
            return run.error();
    }
    const QByteArray rest = extractor.finish();
    if (!rest.isEmpty())
        textSink(rest);
    return {};
}

} // namespace

Result<void> readActivityLogInPieces(const QString& path, qint64 textLimit,
                                     const std::function<void(QByteArrayView)>& textSink)
{
    try {
        return readPieces(path, textLimit, textSink);
    } catch (const std::bad_alloc&) {
        return tooLarge(textLimit);
    }
}

Result<QList<QByteArray>> readActivityLogInBlocks(const QString& path, qsizetype blockBytes)
{
    const qint64 limit = StorageFile::readLimit();
    QList<QByteArray> blocks;
    QByteArray block;
    const Result<void> read = readActivityLogInPieces(path, limit, [&](QByteArrayView piece) {
        if (block.isEmpty())
            block.reserve(blockBytes + piece.size());
        block.append(piece);
        if (block.size() >= blockBytes)
            blocks.append(std::exchange(block, QByteArray()));
    });
    if (!read)
        return read.error();
    if (!block.isEmpty())
        blocks.append(std::move(block));
    return blocks;
}

bool hasGzipSignature(QByteArrayView bytes)
{
    return bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0x1F
        && static_cast<unsigned char>(bytes[1]) == 0x8B;
}

Result<QByteArray> decompressActivityLog(const QString& path)
{
    const qint64 limit = StorageFile::readLimit();
    try {
        QByteArray payload;
        const Result<void> run = runGzip(path, limit, [&](QByteArrayView chunk) {
            payload.append(chunk);
            return payload.size() <= limit;
        });
        if (!run)
            return run.error();
        return payload;
    } catch (const std::bad_alloc&) {
        return tooLarge(limit);
    }
}

void abandonActivityLogReads() { readsAbandoned = true; }

Result<QByteArray> readActivityLog(const QString& path) { return readActivityLog(path, StorageFile::readLimit()); }

Result<QByteArray> readActivityLog(const QString& path, qint64 textLimit)
{
    // Whatever the limit, the address space can be smaller still: a log that
    // does not fit fails like any other unreadable log.
    try {
        return readLimitedActivityLog(path, textLimit);
    } catch (const std::bad_alloc&) {
        return tooLarge(textLimit);
    }
}

} // namespace corvane
