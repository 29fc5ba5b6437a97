#include "CrashTestSupport.h"

#include "BuildHistoryPersistence.h"
#include "DiagnosticPreferencesPersistence.h"
#include "StorageFile.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QSet>
#include <QUuid>

#include <filesystem>
#include <system_error>

namespace corvane::test {

namespace {

const char* const severities[] = {"error", "warning", "warning", "note"};

} // namespace

QStringList CrashLogs::diagnosticLines(int count, int variant, const QString& sourceRoot)
{
    QStringList lines;
    lines.reserve(count + 2);
    lines.append(QStringLiteral("note: Target dependency graph (4 targets)"));
    for (int i = 0; i < count; ++i) {
        // One in eight changes with the variant: new in one build, fixed in the next.
        const int build = i % 8 == 0 ? variant : 0;
        lines.append(QStringLiteral("%1/Module%2/File%3.swift:%4:%5: %6: crash check %7 of build %8")
                         .arg(sourceRoot)
                         .arg(i % 7)
                         .arg(i % 53)
                         .arg(1 + i)
                         .arg(1 + i % 80)
                         .arg(QLatin1StringView(severities[i % 4]))
                         .arg(i)
                         .arg(build));
    }
    return lines;
}

QByteArray CrashLogs::activityLog(int count, int variant)
{
    const QStringList lines = diagnosticLines(count, variant, QStringLiteral("/Users/dev/Crash/Sources"));
    QByteArray raw;
    raw.reserve(count * 160);
    raw.append("SLF0\x01\x02", 6);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        raw.append(lines.at(i).toUtf8());
        raw.append('\r');
        // Real logs put records of non-text bytes between the runs of text.
        if (i % 9 == 8)
            raw.append("\x00\x05\x1a\x7f", 4);
    }
    return gzipBytes(raw);
}

QByteArray CrashLogs::plainTextLog(int count, int variant)
{
    return diagnosticLines(count, variant, QStringLiteral("/Users/dev/Imported/Sources")).join(u'\n').toUtf8();
}

std::optional<QList<OpenFile>> openFiles(qint64 pid, const QString& folder)
{
    const std::string prefix = QFile::encodeName(folder + u'/').toStdString();
    namespace fs = std::filesystem;
    const fs::path process = fs::path("/proc") / std::to_string(pid);
    std::error_code error;
    fs::directory_iterator it(process / "fd", error);
    if (error)
        return std::nullopt;
    QList<OpenFile> files;
    for (; it != fs::directory_iterator(); it.increment(error)) {
        if (error)
            break;
        std::error_code linkError;
        const fs::path target = fs::read_symlink(it->path(), linkError);
        if (linkError || target.native().compare(0, prefix.size(), prefix) != 0)
            continue;
        // "flags:" in fdinfo is octal; its two lowest bits are the access mode.
        QFile info(QString::fromStdString((process / "fdinfo" / it->path().filename()).string()));
        bool writable = false;
        if (info.open(QIODevice::ReadOnly)) {
            for (const QByteArray& line : info.readAll().split('\n')) {
                if (line.startsWith("flags:"))
                    writable = (line.mid(6).trimmed().toUInt(nullptr, 8) & 3) != 0;
            }
        }
        files.append({QString::fromStdString(target.string()), writable});
    }
    return files;
}

bool isSaveInProgress(const OpenFile& file, const QString& folder)
{
    const QString prefix = folder + u'/';
    // Reading (the start-up sweep looks into leftovers) is not saving.
    if (!file.writable || !file.path.startsWith(prefix))
        return false;
    const QString name = file.path.mid(prefix.size());
    // An unnamed temporary file (O_TMPFILE) shows as "#<inode> (deleted)".
    return (name.startsWith(u'#') && name.endsWith(QStringLiteral(" (deleted)"))) || isTemporaryName(name)
        || name == BuildHistoryPersistence::fileName || name == DiagnosticPreferencesPersistence::fileName;
}

bool isTemporaryName(const QString& fileName) { return StorageFile::isTemporaryName(fileName); }

std::optional<QString> continuityProblem(const QList<BuildSession>& before, const QList<BuildSession>& after)
{
    if (after.size() > historyLimit)
        return QStringLiteral("the history holds %1 builds, more than %2").arg(after.size()).arg(historyLimit);
    QSet<QUuid> earlier;
    for (const BuildSession& session : before)
        earlier.insert(session.id);
    qsizetype added = 0;
    while (added < after.size() && !earlier.contains(after.at(added).id))
        ++added;
    const qsizetype kept = after.size() - added;
    const qsizetype room = std::min<qsizetype>(before.size(), historyLimit - added);
    if (kept != room)
        return QStringLiteral("builds were lost: of %1 saved before, %2 remain behind %3 new ones (expected %4)")
            .arg(before.size())
            .arg(kept)
            .arg(added)
            .arg(room);
    for (qsizetype i = 0; i < kept; ++i) {
        if (after.at(added + i) != before.at(i))
            return QStringLiteral("saved build %1 (%2) came back changed or out of order")
                .arg(i)
                .arg(before.at(i).id.toString());
    }
    return std::nullopt;
}

} // namespace corvane::test
