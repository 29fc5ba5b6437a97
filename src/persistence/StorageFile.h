#pragma once

#include "Error.h"

#include <QByteArray>
#include <QString>

#include <functional>

class QFileDevice;
class QIODevice;

namespace corvane {

// Whole-file reads and atomic whole-file writes for the stored files. Errors
// are the platform's own, with its one-line description.
class StorageFile {
public:
    static inline const QString errorDomain = QStringLiteral("Qt.FileDevice");

    static Result<QByteArray> read(const QString& path);
    // The bytes go to a temporary file beside the target that then replaces
    // it, so a failed write leaves the previous file whole.
    static Result<void> writeAtomically(const QString& path, const QByteArray& bytes);
    // The same for content that writes itself to the file; write returns
    // false when the file refused bytes.
    static Result<void> writeAtomically(const QString& path,
                                        const std::function<bool(QIODevice&)>& write);
    static Error error(const QFileDevice& file);
};

} // namespace corvane
