#include "StorageDirectory.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <filesystem>
#include <system_error>

namespace corvane {

Result<QString> storageDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        return Error{QStringLiteral("Corvane.Storage"), 0,
                     QStringLiteral("The user's data folder could not be found.")};
    const QString folder = base + QStringLiteral("/Corvane");
    if (QFileInfo::exists(folder))
        return folder;
    // std::filesystem rather than QDir::mkpath, which says only that it
    // failed: the user should see the system's reason.
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(QFile::encodeName(folder).toStdString()),
                                        error);
    if (error)
        return Error{QString::fromLatin1(error.category().name()), error.value(),
                     QString::fromLocal8Bit(error.message())};
    return folder;
}

} // namespace corvane
