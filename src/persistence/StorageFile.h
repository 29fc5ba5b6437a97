#pragma once

#include "Error.h"

#include <QByteArray>
#include <QString>

class QFileDevice;

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
    static Error error(const QFileDevice& file);
};

} // namespace corvane
