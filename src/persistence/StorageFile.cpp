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

// A file whose written bytes start on their way to the disk as they come,
// a few megabytes at a time, so that the flush before the rename waits only
// for the last of them rather than for a whole history.
class WritebackFile : public QFile {
public:
    using QFile::QFile;

protected:
    qint64 writeData(const char* data, qint64 size) override
    {
        const qint64 written = QFile::writeData(data, size);
#ifdef __linux__
        constexpr qint64 step = qint64(16) << 20;
        if (written > 0)
            m_pending += written;
        if (m_pending >= step) {
            // Only a hint: a failure here changes nothing, fsync() decides.
            ::sync_file_range(handle(), m_started, m_pending, SYNC_FILE_RANGE_WRITE);
            m_started += m_pending;
            m_pending = 0;
        }
#endif
        return written;
    }

private:
    qint64 m_started = 0; // bytes already sent on their way
    qint64 m_pending = 0; // bytes written after those
};

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
    WritebackFile file(target.dir().filePath(temporaryName(target.fileName(), uniqueSuffix())));
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
