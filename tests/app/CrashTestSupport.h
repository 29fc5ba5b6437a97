#pragma once

#include "BuildSession.h"

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <deque>
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

// One python3 process that reads history files with plistlib, one path per
// line, and answers each with the ids of the sessions it found (as JSON).
// Files are checked while the test goes on; answers come back in order.
class PlistlibReader {
public:
    PlistlibReader();
    ~PlistlibReader();

    bool started() const { return m_started; }
    // Asks for the file to be read; it must hold sessions with these ids, in
    // this order. The file is removed once answered.
    void submit(const QString& path, const QList<BuildSession>& sessions, const QString& context);
    // Takes the answers that have arrived (all of them, waiting, when
    // finishing). Returns the first problem found, if any.
    std::optional<QString> collect(bool finishing);
    int answered() const { return m_answered; }

private:
    struct Pending {
        QString path;
        QStringList ids;
        QString context;
    };
    std::optional<QString> take(const QByteArray& line);

    QProcess m_process;
    bool m_started = false;
    std::deque<Pending> m_pending;
    int m_answered = 0;
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
// file there, or a named one beside a stored file, open for writing.
bool isSaveInProgress(const OpenFile& file, const QString& folder);

// "<stored file>.XXXXXX", as an interrupted atomic write leaves it.
bool isTemporaryName(const QString& fileName);

// The sessions of `after` continue those of `before`: zero or more new ones
// at the head, then the earlier ones, unchanged and in order, as many as the
// history limit leaves room for. The problem when not.
std::optional<QString> continuityProblem(const QList<BuildSession>& before, const QList<BuildSession>& after);

} // namespace corvane::test
