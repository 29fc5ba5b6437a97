#include "BuildHistoryPersistence.h"

#include "BuildHistoryWriter.h"
#include "PropertyListRecords.h"
#include "StorageDirectory.h"
#include "StorageFile.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>

namespace corvane {

namespace {

QList<BuildSession> firstSessions(const QList<BuildSession>& sessions)
{
    return sessions.size() > historyLimit ? sessions.first(historyLimit) : sessions;
}

// Moves an undecodable history aside so the next save starts afresh while the
// old bytes stay available to whoever wants to look at them. Nothing here may
// fail the load: a file that cannot be moved simply stays where it is.
void moveAside(const QString& folder)
{
    const QString damaged = folder + u'/' + BuildHistoryPersistence::damagedFileName;
    QFile::remove(damaged);
    QFile::rename(folder + u'/' + BuildHistoryPersistence::fileName, damaged);
}

} // namespace

QByteArray BuildHistoryPersistence::encodeArchive(const BuildHistoryArchive& archive)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    BuildHistoryWriter::write(archive, buffer);
    return bytes;
}

Result<BuildHistoryArchive> BuildHistoryPersistence::decodeArchive(QByteArrayView bytes)
{
    BuildHistoryArchive archive;
    const Result<void> read =
        PropertyListRecords::readFile(bytes, [&archive](PropertyListRecords& records, const PropertyListValue& root) {
            return records.readRecord(root, u"history archive",
                                      {{u"version", records.required, records.integer(archive.version)},
                                       {u"savedAt", records.required, records.time(archive.savedAt)},
                                       {u"sessions", records.required, records.list(archive.sessions)}});
        });
    if (!read)
        return read.error();
    return archive;
}

Result<QList<BuildSession>> BuildHistoryPersistence::load() const
{
    const Result<QString> folder = storageDirectory();
    if (!folder)
        return folder.error();
    const QString path = folder.value() + u'/' + fileName;
    if (!QFileInfo::exists(path))
        return QList<BuildSession>{};

    const Result<QByteArray> bytes = StorageFile::read(path);
    if (!bytes)
        return bytes.error();
    if (bytes.value().isEmpty())
        return QList<BuildSession>{};

    Result<BuildHistoryArchive> archive = decodeArchive(bytes.value());
    if (!archive) {
        moveAside(folder.value());
        return QList<BuildSession>{};
    }
    // A file from another version of the program is left for it; the next
    // save replaces it.
    if (archive.value().version != 1)
        return QList<BuildSession>{};
    return firstSessions(archive.value().sessions);
}

Result<void> BuildHistoryPersistence::save(const QList<BuildSession>& sessions) const
{
    const Result<QString> folder = storageDirectory();
    if (!folder)
        return folder.error();
    const QString path = folder.value() + u'/' + fileName;

    const BuildHistoryArchive archive{1, AbsoluteTime::now(), firstSessions(sessions)};
    // Streamed into the file rather than built whole in memory first.
    const Result<void> written = StorageFile::writeAtomically(
        path, [&archive](QIODevice& file) { return BuildHistoryWriter::write(archive, file); });
    if (!written)
        return written;

    if (!QFileInfo::exists(path))
        return Error{QStringLiteral("Corvane.History"), 1,
                     QStringLiteral("Corvane wrote the history archive but the file could not be verified.")};
    return {};
}

Result<void> BuildHistoryPersistence::clear() const
{
    const Result<QString> folder = storageDirectory();
    if (!folder)
        return folder.error();
    QFile file(folder.value() + u'/' + fileName);
    if (file.exists() && !file.remove())
        return StorageFile::error(file);
    return {};
}

} // namespace corvane
