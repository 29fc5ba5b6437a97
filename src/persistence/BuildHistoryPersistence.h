#pragma once

#include "AbsoluteTime.h"
#include "BuildSession.h"
#include "Error.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

namespace corvane {

// What "BuildHistory.plist" holds.
struct BuildHistoryArchive {
    qint64 version = 1;
    AbsoluteTime savedAt;
    QList<BuildSession> sessions;

    bool operator==(const BuildHistoryArchive&) const = default;
};

// Keeps the build history in "BuildHistory.plist" in the application folder.
// A file that cannot be decoded is moved aside as BuildHistory.damaged.plist.
class BuildHistoryPersistence {
public:
    static inline const QString fileName = QStringLiteral("BuildHistory.plist");
    static inline const QString damagedFileName = QStringLiteral("BuildHistory.damaged.plist");

    // The stored sessions, newest first, at most historyLimit of them.
    Result<QList<BuildSession>> load() const;
    // Writes the first historyLimit sessions whole and atomically.
    Result<void> save(const QList<BuildSession>& sessions) const;
    // Deletes the history file; the damaged copy stays.
    Result<void> clear() const;

    // The file's bytes for an archive, and back. Decoding checks the whole
    // archive, whatever its version; callers decide what a version means.
    static QByteArray encodeArchive(const BuildHistoryArchive& archive);
    static Result<BuildHistoryArchive> decodeArchive(QByteArrayView bytes);
};

} // namespace corvane
