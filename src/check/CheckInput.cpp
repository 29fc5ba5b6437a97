#include "CheckInput.h"

#include "ActivityLogReader.h"
#include "BaselineFile.h"
#include "BuildHistoryPersistence.h"
#include "ReadableTextExtractor.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryFile>

#include <limits>

namespace corvane::CheckInput {

namespace {

const QString errorDomain = QStringLiteral("Corvane.Check");
constexpr qint64 chunkSize = 1 << 20;

QString displayName(const QString& path) { return path == u"-" ? QStringLiteral("standard input") : path; }

// gzip's messages end in a line break and may hold several lines; the user
// gets one.
Error oneLine(const QString& path, Error error)
{
    error.description = displayName(path) + QStringLiteral(": ") + error.description.simplified();
    return error;
}

Error fileError(const QString& path, const QFileDevice& file)
{
    return oneLine(path, Error{errorDomain::file, int(file.error()), file.errorString()});
}

std::optional<Error> openForReading(const QString& path, QFile& file)
{
    if (!QFileInfo::exists(path))
        return oneLine(path, Error{errorDomain, 2, QStringLiteral("no such file")});
    if (QFileInfo(path).isDir())
        return oneLine(path, Error{errorDomain, 2, QStringLiteral("is a folder")});
    if (!file.open(QIODevice::ReadOnly))
        return fileError(path, file);
    return std::nullopt;
}

// Passes the text of the rest of device, after the bytes already read, to
// the parse as it comes.
Result<void> extractFrom(const QString& path, QIODevice& device, const QByteArray& head,
                         DiagnosticParser::Stream& parse)
{
    ReadableTextExtractor extractor;
    const auto pass = [&](QByteArrayView chunk) {
        extractor.append(chunk);
        parse.append(std::string_view(extractor.text().data(), size_t(extractor.text().size())));
        extractor.discardText();
    };
    pass(head);
    QByteArray chunk(chunkSize, Qt::Uninitialized);
    for (;;) {
        const qint64 read = device.read(chunk.data(), chunkSize);
        if (read < 0)
            return oneLine(path, Error{errorDomain, 1, device.errorString()});
        if (read == 0 && (device.atEnd() || !device.waitForReadyRead(-1)))
            break;
        pass(QByteArrayView(chunk.constData(), read));
    }
    const QByteArray rest = extractor.finish();
    parse.append(std::string_view(rest.constData(), size_t(rest.size())));
    return {};
}

// A compressed log is decompressed by gzip, which reads it by its path.
Result<void> readCompressed(const QString& path, DiagnosticParser::Stream& parse)
{
    const Result<void> read =
        readActivityLogInPieces(path, std::numeric_limits<qint64>::max(), [&](QByteArrayView text) {
            parse.append(std::string_view(text.data(), size_t(text.size())));
        });
    if (!read)
        return oneLine(path, read.error());
    return {};
}

// A compressed log on standard input goes to a temporary file first.
Result<void> readCompressedInput(QIODevice& input, const QByteArray& head, DiagnosticParser::Stream& parse)
{
    QTemporaryFile spool;
    if (!spool.open())
        return fileError(QStringLiteral("-"), spool);
    spool.write(head);
    QByteArray chunk(chunkSize, Qt::Uninitialized);
    for (;;) {
        const qint64 read = input.read(chunk.data(), chunkSize);
        if (read < 0)
            return oneLine(QStringLiteral("-"), Error{errorDomain, 1, input.errorString()});
        if (read == 0 && (input.atEnd() || !input.waitForReadyRead(-1)))
            break;
        if (spool.write(chunk.constData(), read) != read)
            return fileError(QStringLiteral("-"), spool);
    }
    if (!spool.flush())
        return fileError(QStringLiteral("-"), spool);
    const Result<void> read =
        readActivityLogInPieces(spool.fileName(), std::numeric_limits<qint64>::max(), [&](QByteArrayView text) {
            parse.append(std::string_view(text.data(), size_t(text.size())));
        });
    if (!read)
        return oneLine(QStringLiteral("-"), read.error());
    return {};
}

Result<void> readLog(const QString& path, QIODevice& standardInput, DiagnosticParser::Stream& parse)
{
    if (path == u"-") {
        // Two reads: a pipe may hand over a single byte first.
        QByteArray head = standardInput.read(2);
        if (head.size() == 1 && (standardInput.bytesAvailable() > 0 || standardInput.waitForReadyRead(-1)))
            head += standardInput.read(1);
        if (hasGzipSignature(head))
            return readCompressedInput(standardInput, head, parse);
        return extractFrom(path, standardInput, head, parse);
    }

    QFile file(path);
    if (const std::optional<Error> error = openForReading(path, file))
        return *error;
    const QByteArray head = file.read(2);
    if (file.error() != QFileDevice::NoError)
        return fileError(path, file);
    if (hasGzipSignature(head)) {
        file.close();
        return readCompressed(path, parse);
    }
    return extractFrom(path, file, head, parse);
}

Result<QByteArray> readWhole(const QString& path)
{
    QFile file(path);
    if (const std::optional<Error> error = openForReading(path, file))
        return *error;
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return fileError(path, file);
    return bytes;
}

} // namespace

Result<QList<BuildDiagnostic>> readLogDiagnostics(const QString& path, QIODevice& standardInput,
                                                  const DiagnosticParser& parser)
{
    DiagnosticParser::Stream parse(parser);
    if (const Result<void> read = readLog(path, standardInput, parse); !read)
        return read.error();
    return parse.finish();
}

Result<QList<BuildDiagnostic>> readBaselineFile(const QString& path)
{
    const Result<QByteArray> bytes = readWhole(path);
    if (!bytes)
        return bytes.error();
    Result<QList<BuildDiagnostic>> diagnostics = BaselineFile::decode(bytes.value());
    if (!diagnostics)
        return oneLine(path, diagnostics.error());
    return diagnostics;
}

Result<QList<BuildDiagnostic>> readHistoryBaseline(const QString& project, const std::optional<QString>& historyFile)
{
    // The window's own file is only read here: a check must never move it
    // aside or create the data folder, as the window's loading would.
    const QString path = historyFile.value_or(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
                                              + QStringLiteral("/Corvane/") + BuildHistoryPersistence::fileName);
    const Result<QByteArray> bytes = readWhole(path);
    if (!bytes)
        return bytes.error();
    Result<BuildHistoryArchive> archive = BuildHistoryPersistence::decodeArchive(bytes.value());
    if (!archive)
        return oneLine(path, archive.error());
    const QList<BuildSession>& sessions = archive.value().sessions;
    // Newest first, as the window keeps them.
    for (const BuildSession& session : sessions) {
        if (session.projectName == project)
            return session.diagnostics;
    }
    return oneLine(path, Error{errorDomain, 3, QStringLiteral("no build of project \"") + project + u'"'});
}

} // namespace corvane::CheckInput
