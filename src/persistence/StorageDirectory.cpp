#include "StorageDirectory.h"

#include "StorageFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSet>
#include <QStandardPaths>

#include <filesystem>
#include <system_error>

namespace corvane {

namespace {

// Sweeping once per folder and process is enough: within one process every
// save runs to its end (or fails and cleans up) before the next begins.
bool firstTimeFor(const QString& folder)
{
    static QMutex mutex;
    static QSet<QString> swept;
    const QMutexLocker lock(&mutex);
    if (swept.contains(folder))
        return false;
    swept.insert(folder);
    return true;
}

} // namespace

int removeInterruptedWrites(const QString& folder)
{
    int removed = 0;
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        if (StorageFile::isTemporaryName(entry.fileName()) && !entry.isSymLink() && entry.isFile()
            && QFile::remove(entry.filePath()))
            ++removed;
    }
    return removed;
}

Result<QString> storageDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        return Error{errorDomain::standardPaths, 0, QStringLiteral("The user's data folder could not be found.")};
    const QString folder = base + QStringLiteral("/Corvane");
    if (QFileInfo::exists(folder)) {
        if (firstTimeFor(folder))
            removeInterruptedWrites(folder);
        return folder;
    }
    // std::filesystem rather than QDir::mkpath, which says only that it
    // failed: the user should see the system's reason.
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(QFile::encodeName(folder).toStdString()), error);
    if (error)
        return Error{QString::fromLatin1(error.category().name()), error.value(),
                     QString::fromLocal8Bit(error.message())};
    // A new folder holds nothing to sweep.
    firstTimeFor(folder);
    return folder;
}

} // namespace corvane
