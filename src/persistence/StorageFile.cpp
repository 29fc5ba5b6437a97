#include "StorageFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringDecoder>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include <unistd.h>

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

namespace {

const QString temporaryMarker = QStringLiteral(".corvane-save-");
constexpr qsizetype uniqueLength = 6;

bool isAsciiLetterOrDigit(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9');
}

QString uniqueSuffix()
{
    static constexpr char16_t characters[] = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QString suffix(uniqueLength, Qt::Uninitialized);
    for (QChar& c : suffix)
        c = characters[QRandomGenerator::global()->bounded(int(std::size(characters)) - 1)];
    return suffix;
}

// What the system said about the last call that failed, as a file error.
Error systemError(QFileDevice::FileError kind) { return Error{errorDomain::file, int(kind), qt_error_string(errno)}; }

} // namespace

QString StorageFile::temporaryName(const QString& fileName, QStringView unique)
{
    return u'.' + fileName + temporaryMarker + unique;
}

bool StorageFile::isTemporaryName(QStringView name)
{
    const qsizetype nameEnd = name.size() - uniqueLength - temporaryMarker.size();
    return name.startsWith(u'.') && nameEnd > 1 && name.sliced(nameEnd).startsWith(temporaryMarker)
        && std::all_of(name.end() - uniqueLength, name.end(), isAsciiLetterOrDigit);
}

Result<void> StorageFile::writeAtomically(const QString& path, const std::function<bool(QIODevice&)>& write)
{
    // A link is followed, so that the file it names is the one replaced.
    const QFileInfo target(QFileInfo(path).isSymLink() ? QFileInfo(path).symLinkTarget() : path);
    QFile file(target.dir().filePath(temporaryName(target.fileName(), uniqueSuffix())));
    // NewOnly: whatever already has the name is neither reused nor followed.
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return error(file);
    const auto abandon = [&file](Error failure) {
        file.remove();
        return failure;
    };
    if (target.isFile())
        file.setPermissions(target.permissions());
    if (!write(file))
        return abandon(error(file));
    // On disk before the rename, or a crash of the system could leave the
    // new name on an empty file.
    if (::fsync(file.handle()) != 0)
        return abandon(systemError(QFileDevice::WriteError));
    file.close();
    if (::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(target.filePath()).constData()) != 0)
        return abandon(systemError(QFileDevice::RenameError));
    return {};
}

} // namespace corvane
