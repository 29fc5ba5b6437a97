#include "StorageFile.h"

#include <QFile>
#include <QSaveFile>

namespace corvane {

Error StorageFile::error(const QFileDevice& file)
{
    return Error{errorDomain, int(file.error()), file.errorString()};
}

Result<QByteArray> StorageFile::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return error(file);
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return error(file);
    return bytes;
}

Result<void> StorageFile::writeAtomically(const QString& path, const QByteArray& bytes)
{
    return writeAtomically(path, [&bytes](QIODevice& device) {
        return device.write(bytes) == bytes.size();
    });
}

Result<void> StorageFile::writeAtomically(const QString& path,
                                          const std::function<bool(QIODevice&)>& write)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return error(file);
    if (!write(file)) {
        Error failure = error(file);
        file.cancelWriting();
        return failure;
    }
    if (!file.commit())
        return error(file);
    return {};
}

} // namespace corvane
