#include "CrashTestSupport.h"

#include "StorageFile.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUuid>

#include <filesystem>
#include <system_error>

namespace corvane::test {

namespace {

// Reads every file it is given and checks the shape the program writes, so
// that a file plistlib reads only by luck still counts as a failure.
const char* const plistlibScript = R"PY(
import datetime, json, plistlib, sys
for line in sys.stdin:
    path = line.rstrip("\n")
    try:
        with open(path, "rb") as f:
            root = plistlib.load(f)
        if not isinstance(root, dict) or sorted(root) != ["savedAt", "sessions", "version"]:
            raise ValueError("root keys %r" % sorted(root))
        if root["version"] != 1 or not isinstance(root["savedAt"], datetime.datetime):
            raise ValueError("version or savedAt")
        ids = []
        for session in root["sessions"]:
            for key in ("id", "startedAt", "diagnostics", "sourceName", "projectName", "comparison"):
                if key not in session:
                    raise ValueError("session without " + key)
            for d in session["diagnostics"]:
                if not isinstance(d["message"], str) or d["severity"] not in ("error", "warning", "note"):
                    raise ValueError("diagnostic %r" % d)
            ids.append(session["id"].upper())
        print(json.dumps({"path": path, "ids": ids}), flush=True)
    except Exception as e:
        print(json.dumps({"path": path, "error": repr(e)}), flush=True)
)PY";

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

PlistlibReader::PlistlibReader()
{
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.start(QStringLiteral("python3"), {QStringLiteral("-c"), QString::fromUtf8(plistlibScript)});
    m_started = m_process.waitForStarted(30000);
}

PlistlibReader::~PlistlibReader()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

void PlistlibReader::submit(const QString& path, const QList<BuildSession>& sessions, const QString& context)
{
    Pending pending{path, {}, context};
    for (const BuildSession& session : sessions)
        pending.ids.append(session.id.toString(QUuid::WithoutBraces).toUpper());
    m_pending.push_back(std::move(pending));
    m_process.write(path.toUtf8() + '\n');
}

std::optional<QString> PlistlibReader::collect(bool finishing)
{
    if (finishing) {
        m_process.closeWriteChannel();
        m_process.waitForFinished(300000);
    } else {
        m_process.waitForReadyRead(0);
    }
    while (m_process.canReadLine()) {
        if (std::optional<QString> problem = take(m_process.readLine()))
            return problem;
    }
    if (finishing && !m_pending.empty())
        return QStringLiteral("plistlib gave no answer for %1 files (first: %2); python said: %3")
            .arg(m_pending.size())
            .arg(m_pending.front().context, QString::fromUtf8(m_process.readAllStandardError()));
    return std::nullopt;
}

std::optional<QString> PlistlibReader::take(const QByteArray& line)
{
    if (m_pending.empty())
        return QStringLiteral("plistlib answered a question nobody asked: %1").arg(QString::fromUtf8(line));
    const Pending pending = m_pending.front();
    m_pending.pop_front();
    ++m_answered;
    QFile::remove(pending.path);

    const QJsonObject answer = QJsonDocument::fromJson(line).object();
    if (answer.value(QStringLiteral("path")).toString() != pending.path)
        return QStringLiteral("plistlib answered out of order: %1").arg(QString::fromUtf8(line));
    if (answer.contains(QStringLiteral("error")))
        return QStringLiteral("plistlib could not read the history (%1): %2")
            .arg(pending.context, answer.value(QStringLiteral("error")).toString());
    QStringList ids;
    for (const QJsonValue& id : answer.value(QStringLiteral("ids")).toArray())
        ids.append(id.toString());
    if (ids != pending.ids)
        return QStringLiteral("plistlib found %1 sessions where the program's loader found %2 (%3)")
            .arg(ids.size())
            .arg(pending.ids.size())
            .arg(pending.context);
    return std::nullopt;
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
    return (name.startsWith(u'#') && name.endsWith(QStringLiteral(" (deleted)"))) || isTemporaryName(name);
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
