#pragma once

#include "Error.h"

#include <QByteArray>
#include <QString>

#include <functional>

class QFile;
class QFileDevice;
class QIODevice;

namespace corvane {

// Whole-file reads and atomic whole-file writes. Errors are the platform's
// own, with its one-line description.
//
// Every read opens its file without waiting on it and refuses anything but a
// regular file: a FIFO would block the caller for good and a device such as
// /dev/zero never ends. A file larger than readLimit() is refused as well.
class StorageFile {
public:
    static Result<QByteArray> read(const QString& path);
    // A whole file as UTF-8 text (an imported log); anything else is an error
    // whose description names the file.
    static Result<QString> readUtf8Text(const QString& path);
    // Opens an existing regular file for reading into `file`. `systemError`,
    // when given, receives errno of a failed open (0 otherwise).
    static Result<void> openRegularFile(QFile& file, const QString& path, int* systemError = nullptr);
    // The most this program holds of one file or one log's text: a quarter of
    // the memory it may use (physical memory, or the address-space limit when
    // that is lower), so the copies made while parsing still fit.
    static qint64 readLimit();
    // The bytes go to a temporary file beside the target, reach the disk, and
    // then replace the target in one rename, so a failed write leaves the
    // previous file whole.
    static Result<void> writeAtomically(const QString& path, const QByteArray& bytes);
    // The same for content that writes itself to the file; write returns
    // false when the file refused bytes.
    static Result<void> writeAtomically(const QString& path, const std::function<bool(QIODevice&)>& write);
    // The temporary file of a save of fileName: ".<fileName>.corvane-save-"
    // and six ASCII letters or digits. Only these writes make such names, so
    // what a killed save left behind can be told from the user's own files.
    static QString temporaryName(const QString& fileName, QStringView unique);
    static bool isTemporaryName(QStringView name);
    static Error error(const QFileDevice& file);
};

} // namespace corvane
