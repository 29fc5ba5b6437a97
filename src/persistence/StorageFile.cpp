#include "StorageFile.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringDecoder>

namespace corvane {

Error StorageFile::error(const QFileDevice& file)
{
    return Error{errorDomain::file, int(file.error()), file.errorString()};
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

Result<QString> StorageFile::readUtf8Text(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Error{errorDomain::file, int(file.error()),
                     QStringLiteral("The file \u201C%1\u201D could not be opened: %2.").arg(name, file.errorString())};
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return Error{errorDomain::file, int(file.error()),
                     QStringLiteral("The file \u201C%1\u201D could not be read: %2.").arg(name, file.errorString())};
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return Error{errorDomain::textDecoding, 0, QStringLiteral("The file \u201C%1\u201D is not UTF-8 text.").arg(name)};
    return text;
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
