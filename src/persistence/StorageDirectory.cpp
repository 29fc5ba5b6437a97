#include "StorageDirectory.h"

#include "BuildHistoryPersistence.h"
#include "DiagnosticPreferencesPersistence.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSet>
#include <QStandardPaths>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace corvane {

namespace {

// What QSaveFile appends to the target's name for its temporary file when it
// cannot write an unnamed one (or while it gives the finished one a name).
constexpr qsizetype temporarySuffixLength = 6;

bool isTemporarySuffix(QStringView suffix)
{
    if (suffix.size() != temporarySuffixLength)
        return false;
    for (const QChar c : suffix) {
        const char16_t u = c.unicode();
        const bool letterOrDigit = (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9');
        if (!letterOrDigit)
            return false;
    }
    return true;
}

// A write cut short may have put any prefix of the encoded file on disk,
// including nothing at all.
bool beginsLikeOurFile(const QString& path)
{
    static const QByteArray magic = QByteArrayLiteral("bplist00");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = file.read(magic.size());
    return magic.startsWith(head);
}

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

QStringList storedFileNames()
{
    return {BuildHistoryPersistence::fileName, DiagnosticPreferencesPersistence::fileName};
}

int removeInterruptedWrites(const QString& folder, const QStringList& fileNames)
{
    int removed = 0;
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        const QString name = entry.fileName();
        const bool named = std::any_of(fileNames.cbegin(), fileNames.cend(), [&name](const QString& stored) {
            return name.size() == stored.size() + 1 + temporarySuffixLength && name.startsWith(stored)
                && name.at(stored.size()) == u'.' && isTemporarySuffix(QStringView(name).sliced(stored.size() + 1));
        });
        if (!named || entry.isSymLink() || !entry.isFile())
            continue;
        if (beginsLikeOurFile(entry.filePath()) && QFile::remove(entry.filePath()))
            ++removed;
    }
    return removed;
}

Result<QString> storageDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        return Error{QStringLiteral("Corvane.Storage"), 0,
                     QStringLiteral("The user's data folder could not be found.")};
    const QString folder = base + QStringLiteral("/Corvane");
    if (QFileInfo::exists(folder)) {
        if (firstTimeFor(folder))
            removeInterruptedWrites(folder, storedFileNames());
        return folder;
    }
    // std::filesystem rather than QDir::mkpath, which says only that it
    // failed: the user should see the system's reason.
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(QFile::encodeName(folder).toStdString()),
                                        error);
    if (error)
        return Error{QString::fromLatin1(error.category().name()), error.value(),
                     QString::fromLocal8Bit(error.message())};
    // A new folder holds nothing to sweep.
    firstTimeFor(folder);
    return folder;
}

} // namespace corvane
