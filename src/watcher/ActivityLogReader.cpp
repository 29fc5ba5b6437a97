#include "ActivityLogReader.h"

#include "ReadableTextExtractor.h"
#include "StorageFile.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
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

// Reads the log through the extraction, giving the extractor to `take`
// after every chunk to take from it what text it wants; what is left at the
// end is the result.
Result<QByteArray> readThrough(const QString& path, qint64 textLimit, qsizetype firstBytes,
                               const std::function<void(ReadableTextExtractor&)>& take)
{
    QFile file;
    const Result<QByteArray> opened = openLog(file, path);
    if (!opened)
        return opened.error();
    ReadableTextExtractor extractor(firstBytes);
    qint64 taken = 0;
    // False once the text is longer than the limit.
    const auto pass = [&](QByteArrayView chunk) {
        extractor.append(chunk);
        const qsizetype held = extractor.size();
        if (taken + held > textLimit)
            return false;
        take(extractor);
        taken += held - extractor.size();
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
    return extractor.finish();
}

} // namespace

Result<void> readActivityLogInPieces(const QString& path, qint64 textLimit,
                                     const std::function<void(QByteArrayView)>& textSink)
{
    // Whatever the limit, the address space can be smaller still: a log that
    // does not fit fails like any other unreadable log.
    try {
        // One buffer serves every piece, so no fresh memory is touched.
        const Result<QByteArray> rest = readThrough(path, textLimit, 0, [&](ReadableTextExtractor& extractor) {
            if (!extractor.text().isEmpty())
                textSink(extractor.text());
            extractor.discardText();
        });
        if (!rest)
            return rest.error();
        if (!rest.value().isEmpty())
            textSink(rest.value());
        return {};
    } catch (const std::bad_alloc&) {
        return tooLarge(textLimit);
    }
}

Result<void> readActivityLogInBlocks(const QString& path, const std::function<void(QByteArray)>& blockSink,
                                     qsizetype blockBytes)
{
    const qint64 limit = StorageFile::readLimit();
    try {
        // The extraction writes each block itself; a full one is taken as it is.
        // Room for a block and the last chunk that fills it.
        const qsizetype room = blockBytes + (qsizetype(1) << 20);
        const Result<QByteArray> rest = readThrough(path, limit, room, [&](ReadableTextExtractor& extractor) {
            if (extractor.text().size() >= blockBytes)
                blockSink(extractor.takeText(room));
        });
        if (!rest)
            return rest.error();
        if (!rest.value().isEmpty())
            blockSink(rest.value());
        return {};
    } catch (const std::bad_alloc&) {
        return tooLarge(limit);
    }
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
    try {
        return readThrough(path, textLimit, 0, [](ReadableTextExtractor&) {});
    } catch (const std::bad_alloc&) {
        return tooLarge(textLimit);
    }
}

} // namespace corvane
