#include "ActivityLogReader.h"

#include "ReadableTextExtractor.h"

#include <QFile>
#include <QProcess>
#include <QStringDecoder>

#include <functional>
#include <limits>

#if defined(Q_OS_LINUX)
#include <fcntl.h>
#include <unistd.h>
#endif

namespace corvane {

namespace {

const QString gzipProgram = QStringLiteral("/usr/bin/gzip");

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

// gzip keeps the uncompressed size modulo 2^32 in the last four bytes. It is a
// hint only: a file of several members or of 4 GiB and more tells a smaller
// size, and a damaged one any size at all.
qsizetype uncompressedSizeHint(QFile& file)
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
    if (hint > size * 1100 || hint > std::numeric_limits<qsizetype>::max() / 2)
        return 0;
    return static_cast<qsizetype>(hint);
}

// Runs gzip on the file and hands each piece of its standard output to sink as
// it arrives, so the decompressed payload never has to be held whole.
Result<void> runGzip(const QString& path, const std::function<void(QByteArrayView)>& sink)
{
    QProcess gzip;
    gzip.setProcessChannelMode(QProcess::SeparateChannels);
#if defined(Q_OS_LINUX)
    // Larger pipe buffers mean fewer wake-ups for both gzip and us on large
    // logs. A refusal (limits lowered by the administrator) just leaves the default.
    gzip.setChildProcessModifier([] { ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 1 << 20); });
#endif
    gzip.start(gzipProgram, {QStringLiteral("-dc"), path}, QIODevice::ReadOnly);
    if (!gzip.waitForStarted(-1))
        return Error{errorDomain::process, static_cast<int>(gzip.error()), gzip.errorString()};

    // waitForReadyRead services both pipes, so gzip can never stall on a full
    // standard-error pipe while we wait for standard output.
    gzip.setReadChannel(QProcess::StandardOutput);
    // One buffer for every piece: a new array for each would be allocated,
    // faulted in and freed again hundreds of times on a large log.
    QByteArray buffer(qsizetype(1) << 20, Qt::Uninitialized);
    const auto drain = [&] {
        for (qint64 read; (read = gzip.read(buffer.data(), buffer.size())) > 0;)
            sink(QByteArrayView(buffer.constData(), qsizetype(read)));
    };
    while (gzip.waitForReadyRead(-1))
        drain();
    if (gzip.state() != QProcess::NotRunning)
        gzip.waitForFinished(-1);
    // Output that arrived together with the end of the process.
    drain();

    const QByteArray standardError = gzip.readAllStandardError();
    if (gzip.exitStatus() == QProcess::CrashExit)
        return gzipFailure(gzip.exitCode() != 0 ? gzip.exitCode() : -1, standardError);
    if (gzip.exitCode() != 0)
        return gzipFailure(gzip.exitCode(), standardError);
    return {};
}

} // namespace

bool hasGzipSignature(QByteArrayView bytes)
{
    return bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0x1F
        && static_cast<unsigned char>(bytes[1]) == 0x8B;
}

Result<QByteArray> decompressActivityLog(const QString& path)
{
    QByteArray payload;
    const Result<void> run = runGzip(path, [&](QByteArrayView chunk) { payload.append(chunk); });
    if (!run)
        return run.error();
    return payload;
}

Result<QByteArray> readActivityLog(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fileError(file);
    const QByteArray head = file.read(2);
    if (file.error() != QFileDevice::NoError)
        return fileError(file);
    if (head.isEmpty())
        return QByteArray();

    if (!hasGzipSignature(head)) {
        QByteArray bytes = head + file.readAll();
        if (file.error() != QFileDevice::NoError)
            return fileError(file);
        return extractReadableText(bytes);
    }

    ReadableTextExtractor extractor(uncompressedSizeHint(file));
    file.close();
    const Result<void> run = runGzip(path, [&](QByteArrayView chunk) { extractor.append(chunk); });
    if (!run)
        return run.error();
    return extractor.finish();
}

} // namespace corvane
