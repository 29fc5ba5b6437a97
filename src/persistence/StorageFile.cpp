#include "StorageFile.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringDecoder>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvane {

namespace {

Error openError(int errorNumber)
{
    return Error{errorDomain::file, int(QFileDevice::OpenError), qt_error_string(errorNumber)};
}

Result<QByteArray> readWhole(QFile& file)
{
    if (file.size() > StorageFile::readLimit())
        return openError(EFBIG);
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return StorageFile::error(file);
    return bytes;
}

} // namespace

Error StorageFile::error(const QFileDevice& file)
{
    return Error{errorDomain::file, int(file.error()), file.errorString()};
}

Result<void> StorageFile::openRegularFile(QFile& file, const QString& path, int* systemError)
{
    // Without O_NONBLOCK, opening a FIFO waits until something writes to it.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    const int openErrno = fd < 0 ? errno : 0;
    if (systemError)
        *systemError = openErrno;
    if (fd < 0)
        return openError(openErrno);
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        const bool folder = S_ISDIR(status.st_mode);
        ::close(fd);
        return Error{errorDomain::file, int(QFileDevice::OpenError),
                     folder ? qt_error_string(EISDIR) : QStringLiteral("Not a regular file")};
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return error(file);
    }
    return {};
}

qint64 StorageFile::readLimit()
{
    qint64 memory = qint64(::sysconf(_SC_PHYS_PAGES)) * qint64(::sysconf(_SC_PAGESIZE));
    if (memory <= 0)
        memory = qint64(4) << 30;
    struct rlimit addressSpace {};
    if (::getrlimit(RLIMIT_AS, &addressSpace) == 0 && addressSpace.rlim_cur != RLIM_INFINITY)
        memory = std::min<qint64>(memory, qint64(addressSpace.rlim_cur));
    return memory / 4;
}

Result<QByteArray> StorageFile::read(const QString& path)
{
    QFile file;
    if (const Result<void> opened = openRegularFile(file, path); !opened)
        return opened.error();
    return readWhole(file);
}

Result<QString> StorageFile::readUtf8Text(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    QFile file;
    if (const Result<void> opened = openRegularFile(file, path); !opened)
        return Error{
            errorDomain::file, opened.error().code,
            QStringLiteral("The file \u201C%1\u201D could not be opened: %2.").arg(name, opened.error().description)};
    const Result<QByteArray> bytes = readWhole(file);
    if (!bytes)
        return Error{
            errorDomain::file, bytes.error().code,
            QStringLiteral("The file \u201C%1\u201D could not be read: %2.").arg(name, bytes.error().description)};
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes.value());
    if (decoder.hasError())
        return Error{errorDomain::textDecoding, 0,
                     QStringLiteral("The file \u201C%1\u201D is not UTF-8 text.").arg(name)};
    return text;
}

Result<void> StorageFile::writeAtomically(const QString& path, const QByteArray& bytes)
{
    return writeAtomically(path, [&bytes](QIODevice& device) { return device.write(bytes) == bytes.size(); });
}

Result<void> StorageFile::writeAtomically(const QString& path, const std::function<bool(QIODevice&)>& write)
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
