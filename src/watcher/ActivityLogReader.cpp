#include "ActivityLogReader.h"

#include "ReadableTextExtractor.h"
#include "StorageFile.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <limits>
#include <new>

#if defined(Q_OS_LINUX)
#include <fcntl.h>
#include <unistd.h>
#endif

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

// Runs gzip on the file and hands each piece of its standard output to sink as
// it arrives, so the decompressed payload never has to be held whole. A sink
// that returns false has had enough: gzip is ended and the run fails as too large.
Result<void> runGzip(const QString& path, qint64 limit, const std::function<bool(QByteArrayView)>& sink)
{
    QProcess gzip;
    gzip.setProcessChannelMode(QProcess::SeparateChannels);
#if defined(Q_OS_LINUX)
    // Larger pipe buffers mean fewer wake-ups for both gzip and us on large
    // logs. A refusal (limits lowered by the administrator) just leaves the default.
    gzip.setChildProcessModifier([] { ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 1 << 20); });
#endif
    if (readsAbandoned)
        return abandoned();
    gzip.start(gzipProgram, {QStringLiteral("-dc"), path}, QIODevice::ReadOnly);
    if (!gzip.waitForStarted(-1))
        return startFailure(gzip);

    // waitForReadyRead services both pipes, so gzip can never stall on a full
    // standard-error pipe while we wait for standard output. It wakes up now
    // and then to see whether the program is quitting.
    gzip.setReadChannel(QProcess::StandardOutput);
    // One buffer for every piece: a new array for each would be allocated,
    // faulted in and freed again hundreds of times on a large log. False once
    // the sink has had enough.
    QByteArray buffer(qsizetype(1) << 20, Qt::Uninitialized);
    const auto drain = [&] {
        for (qint64 read; (read = gzip.read(buffer.data(), buffer.size())) > 0;) {
            if (!sink(QByteArrayView(buffer.constData(), qsizetype(read))))
                return false;
        }
        return true;
    };
    for (;;) {
        if (readsAbandoned) {
            endProcess(gzip);
            return abandoned();
        }
        if (!gzip.waitForReadyRead(static_cast<int>(abandonCheckInterval.count()))) {
            if (gzip.state() == QProcess::NotRunning)
                break;
            continue;
        }
        if (!drain()) {
            endProcess(gzip);
            return tooLarge(limit);
        }
    }
    // Output that arrived together with the end of the process.
    if (!drain())
        return tooLarge(limit);

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
