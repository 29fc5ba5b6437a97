#pragma once

#include "BuildSession.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace corvane::test {

// Build logs big enough that reading, parsing and saving them take real time.
// Variants differ in part of their diagnostics, so that consecutive builds of
// one project have new and fixed ones.
class CrashLogs {
public:
    // Compiler output lines: `count` diagnostics of files under sourceRoot.
    static QStringList diagnosticLines(int count, int variant, const QString& sourceRoot);
    // An activity log as Xcode writes it: gzip, CR line ends, the text in runs
    // between bytes that are not text.
    static QByteArray activityLog(int count, int variant);
    // A plain-text log as the user would import it.
    static QByteArray plainTextLog(int count, int variant);
};

struct OpenFile {
    // As the system names it; "(deleted)" follows files without a name.
    QString path;
    bool writable = false;
};
// The files in folder that the process with this id has open; nothing where
// the system does not tell (no /proc).
std::optional<QList<OpenFile>> openFiles(qint64 pid, const QString& folder);

// Whether the open file is a save in progress in folder: an unnamed temporary
// file there, a named one beside a stored file, or a stored file itself, open
// for writing.
bool isSaveInProgress(const OpenFile& file, const QString& folder);

// "<stored file>.XXXXXX", as an interrupted atomic write leaves it.
bool isTemporaryName(const QString& fileName);

// The sessions of `after` continue those of `before`: zero or more new ones
// at the head, then the earlier ones, unchanged and in order, as many as the
// history limit leaves room for. The problem when not.
std::optional<QString> continuityProblem(const QList<BuildSession>& before, const QList<BuildSession>& after);

} // namespace corvane::test
