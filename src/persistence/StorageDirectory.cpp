#include "StorageDirectory.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace corvane {

Result<QString> storageDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        return Error{QStringLiteral("Corvane.Storage"), 0,
                     QStringLiteral("The user's data folder could not be found.")};
    const QString folder = base + QStringLiteral("/Corvane");
    if (!QFileInfo::exists(folder) && !QDir().mkpath(folder))
        return Error{QStringLiteral("Corvane.Storage"), 0,
                     QStringLiteral("The folder %1 could not be created.").arg(folder)};
    return folder;
}

} // namespace corvane
