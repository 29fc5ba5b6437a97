#include "XcodeBuildWatcher.h"

#include "ActivityLogReader.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QFuture>
#include <QPointer>
#include <QSet>
#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

#include <dirent.h>

namespace corvane {

namespace {

// One pool for every watcher, at low priority so scans and reads of large logs
// never compete with the interface. It belongs to the application object so
// that it outlives every watcher: destroying a pool waits for its jobs, which
// must never happen on the interface thread while a log is being read.
QThreadPool* backgroundPool()
{
    static QThreadPool* pool = [] {
        auto* p = new QThreadPool(QCoreApplication::instance());
        p->setThreadPriority(QThread::LowPriority);
        p->setMaxThreadCount(2);
        return p;
    }();
    return pool;
}

// The visible names in a folder, from one listing. Qt's own listings leave out
// names that are not valid UTF-8 altogether (no QString path could name them),
// so the folder is read with the system's listing, which shows them too; those
// go to `undecodable` with their folder, to be reported.
QStringList listFolder(const QString& folder, bool logsOnly, QStringList* undecodable)
{
    QStringList names;
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return names;
    while (const dirent* entry = ::readdir(dir)) {
        const QByteArrayView name(entry->d_name);
        if (name.startsWith('.') || (logsOnly && !name.endsWith(".xcactivitylog")))
            continue;
        if (name.isValidUtf8())
            names.append(QFile::decodeName(name.toByteArray()));
        else if (undecodable)
            undecodable->append(folder + u'/' + QFile::decodeName(name.toByteArray()));
    }
    ::closedir(dir);
    return names;
}

// What comes back from a background job must never be an exception: it would
// end the chain of continuations, and with it the polling, for good.
XcodeBuildWatcher::Scan guardedScan(const QString& derivedDataPath)
{
    XcodeBuildWatcher::Scan scan;
    try {
        scan.logs = XcodeBuildWatcher::scanLogs(derivedDataPath, &scan.undecodable);
    } catch (...) {
        // Like a folder that cannot be listed.
        scan = {};
    }
    return scan;
}

Result<void> guardedRead(const QString& path, const std::function<void(QByteArray)>& blockSink)
{
    try {
        return readActivityLogInBlocks(path, blockSink);
    } catch (const std::exception& e) {
        return Error{activityLogErrorDomain, 0, QString::fromLocal8Bit(e.what())};
    } catch (...) {
        return Error{activityLogErrorDomain, 0, QStringLiteral("The Xcode activity log could not be read.")};
    }
}

} // namespace

QDateTime XcodeBuildWatcher::Snapshot::distantPast() { return QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC); }

struct XcodeBuildWatcher::Private {
    QString derivedDataPath;
    std::chrono::milliseconds interval;

    // Each start begins a new polling loop with a new number; 0 while idle. A
    // loop whose number is no longer current has been cancelled: it finishes
    // the poll it is in and then ends instead of pausing.
    quint64 currentLoop = 0;
    quint64 lastLoop = 0;
    QTimer pause;

    Snapshots knownLogs;
    Snapshots pendingLogs;
    Snapshots processedSnapshot;
    // Undecodable names already reported, so each is reported once.
    QSet<QString> reportedUndecodable;
};

QString XcodeBuildWatcher::defaultDerivedDataPath()
{
    return QDir::homePath() + QStringLiteral("/Library/Developer/Xcode/DerivedData");
}

XcodeBuildWatcher::XcodeBuildWatcher(QString derivedDataPath, std::chrono::milliseconds interval, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->derivedDataPath = std::move(derivedDataPath);
    d->interval = interval;
    d->pause.setSingleShot(true);
    connect(&d->pause, &QTimer::timeout, this, [this] {
        if (d->currentLoop != 0)
            poll(d->currentLoop);
    });
}

// Pending continuations have this watcher as their context, so they are
// dropped with it; the jobs themselves own copies of everything they use.
XcodeBuildWatcher::~XcodeBuildWatcher() = default;

void XcodeBuildWatcher::start()
{
    if (d->currentLoop != 0)
        return;
    const quint64 loop = d->currentLoop = ++d->lastLoop;
    sendState(WatcherState::watching());

    // Logs already there are the baseline: known, never read unless they change.
    QtConcurrent::run(backgroundPool(), &guardedScan, d->derivedDataPath)
        .then(this, [this, loop](const Scan& baseline) {
            d->knownLogs = baseline.logs;
            reportUndecodable(baseline.undecodable);
            if (d->currentLoop == loop)
                poll(loop);
        });
}

void XcodeBuildWatcher::stop()
{
    d->currentLoop = 0;
    d->pause.stop();
    d->pendingLogs.clear();
    sendState(WatcherState::stopped());
}

bool XcodeBuildWatcher::isRunning() const { return d->currentLoop != 0; }
QString XcodeBuildWatcher::derivedDataPath() const { return d->derivedDataPath; }

void XcodeBuildWatcher::poll(quint64 loop)
{
    QtConcurrent::run(backgroundPool(), &guardedScan, d->derivedDataPath).then(this, [this, loop](const Scan& scan) {
        takeScan(loop, scan);
    });
}

void XcodeBuildWatcher::reportUndecodable(const QStringList& paths)
{
    for (const QString& path : paths) {
        if (d->reportedUndecodable.contains(path))
            continue;
        d->reportedUndecodable.insert(path);
        sendState(WatcherState::failed(
            QStringLiteral("Skipped \u201C%1\u201D: its name is not valid UTF-8.").arg(QFileInfo(path).fileName())));
    }
}

void XcodeBuildWatcher::takeScan(quint64 loop, const Scan& scan)
{
    const Snapshots& current = scan.logs;
    reportUndecodable(scan.undecodable);
    for (auto it = current.cbegin(); it != current.cend(); ++it) {
        const auto known = d->knownLogs.constFind(it.key());
        if (known != d->knownLogs.cend() && known.value() == it.value())
            continue;
        sendState(WatcherState::buildDetected(projectNameForLog(it.key())));
        d->pendingLogs.insert(it.key(), it.value());
    }

    ReadyLogs ready;
    for (auto it = d->pendingLogs.begin(); it != d->pendingLogs.end();) {
        const auto now = current.constFind(it.key());
        if (now == current.cend()) {
            ++it;
        } else if (now.value() != it.value()) {
            // Still being written; looked at again next time.
            it.value() = now.value();
            ++it;
        } else if (const auto read = d->processedSnapshot.constFind(it.key());
                   read != d->processedSnapshot.cend() && read.value() == now.value()) {
            it = d->pendingLogs.erase(it);
        } else {
            ready.append({it.key(), now.value()});
            ++it;
        }
    }

    d->knownLogs = current;
    processReady(loop, std::move(ready), 0);
}

void XcodeBuildWatcher::processReady(quint64 loop, ReadyLogs ready, qsizetype next)
{
    if (next == ready.size()) {
        finishPoll(loop);
        return;
    }
    // Plain copies, not a structured binding: clang before 16 cannot capture
    // those in the lambda below.
    const QString path = ready.at(next).path;
    const Snapshot snapshot = ready.at(next).snapshot;
    d->pendingLogs.remove(path);
    sendState(WatcherState::processing(projectNameForLog(path)));

    // The blocks and then the outcome go back to this thread as calls queued
    // in turn on one object, so they arrive in the order they were sent; a
    // continuation of the job's future could overtake blocks still queued.
    // The object is the job's, as the job may outlive the watcher.
    const std::shared_ptr<QObject> relay(new QObject, [](QObject* object) { object->deleteLater(); });
    const QPointer<XcodeBuildWatcher> self(this);
    const auto sendBack = [relay, self](auto call) {
        QMetaObject::invokeMethod(
            relay.get(),
            [self, call]() mutable {
                if (self)
                    call(*self);
            },
            Qt::QueuedConnection);
    };
    backgroundPool()->start([sendBack, path, loop, ready = std::move(ready), next, snapshot] {
        const Result<void> read = guardedRead(path, [&](QByteArray block) {
            sendBack([path, block = std::move(block)](XcodeBuildWatcher& watcher) mutable {
                if (watcher.onBuildText)
                    watcher.onBuildText(path, std::move(block));
            });
        });
        sendBack([=](XcodeBuildWatcher& watcher) { watcher.finishRead(loop, ready, next, snapshot, read); });
    });
}

void XcodeBuildWatcher::finishRead(quint64 loop, const ReadyLogs& ready, qsizetype next, const Snapshot& snapshot,
                                   const Result<void>& read)
{
    const QString& path = ready.at(next).path;
    if (read) {
        d->processedSnapshot.insert(path, snapshot);
        if (onBuild)
            onBuild(path);
        sendState(WatcherState::watching());
    } else {
        sendState(WatcherState::failed(read.error().description));
        // Otherwise not retried: the log stays known with this
        // snapshot, so only a change to the file brings it back.
        if (read.error().domain == activityLogErrorDomain && read.error().code == activityLogError::lackOfResources)
            d->pendingLogs.insert(path, snapshot);
    }
    processReady(loop, ready, next + 1);
}

void XcodeBuildWatcher::finishPoll(quint64 loop)
{
    // The cancellation test between polls: a stopped (or restarted) loop ends here.
    if (d->currentLoop != loop)
        return;
    d->pause.start(d->interval);
}

void XcodeBuildWatcher::sendState(const WatcherState& state)
{
    if (onStateChange)
        onStateChange(state);
}

QString XcodeBuildWatcher::projectNameForLog(const QString& logPath)
{
    const QStringList components = logPath.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const qsizetype derivedData = components.indexOf(QStringLiteral("DerivedData"));
    if (derivedData < 0 || derivedData + 1 >= components.size())
        return QStringLiteral("Xcode");
    const QString& folder = components.at(derivedData + 1);
    const qsizetype hyphen = folder.lastIndexOf(QLatin1Char('-'));
    return hyphen < 0 ? folder : folder.left(hyphen);
}

XcodeBuildWatcher::Snapshots XcodeBuildWatcher::scanLogs(const QString& derivedDataPath, QStringList* undecodable)
{
    Snapshots logs;
    const QDir root(derivedDataPath);
    // Entries are not checked for being folders: listing Logs/Build inside
    // anything else simply finds nothing.
    for (const QString& project : listFolder(derivedDataPath, false, undecodable)) {
        const QString buildLogs = root.filePath(project) + QStringLiteral("/Logs/Build");
        for (const QString& name : listFolder(buildLogs, true, undecodable)) {
            const QFileInfo file(buildLogs + u'/' + name);
            // A symbolic link is not a regular file, whatever it points to.
            if (file.isSymLink() || !file.isFile())
                continue;
            Snapshot snapshot;
            snapshot.size = static_cast<quint64>(std::max<qint64>(file.size(), 0));
            const QDateTime modified = file.lastModified().toUTC();
            if (modified.isValid())
                snapshot.modificationDate = modified;
            logs.insert(file.filePath(), snapshot);
        }
    }
    return logs;
}

} // namespace corvane
