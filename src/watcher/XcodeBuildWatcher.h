#pragma once

#include "Error.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

namespace corvane {

// Polls Xcode's DerivedData folder for new or rewritten build activity logs
// and hands each log's text to its owner. Everything here runs on the thread
// that owns the watcher (the GUI thread); folder scans and log reads run as
// low-priority background jobs whose results come back to that thread.
class XcodeBuildWatcher : public QObject {
    Q_OBJECT

public:
    struct WatcherState {
        enum class Kind { watching, buildDetected, processing, failed, stopped };
        Kind kind = Kind::stopped;
        // The project name for buildDetected and processing, the error's
        // description for failed, empty otherwise.
        QString payload;

        static WatcherState watching() { return {Kind::watching, {}}; }
        static WatcherState buildDetected(QString project) { return {Kind::buildDetected, std::move(project)}; }
        static WatcherState processing(QString project) { return {Kind::processing, std::move(project)}; }
        static WatcherState failed(QString message) { return {Kind::failed, std::move(message)}; }
        static WatcherState stopped() { return {Kind::stopped, {}}; }

        bool operator==(const WatcherState&) const = default;
    };

    // A log file as last seen. Two snapshots are the same state of the file
    // when size and modification date agree; nothing else is compared.
    struct Snapshot {
        quint64 size = 0;
        // distantPast() when the file system gives no date.
        QDateTime modificationDate = distantPast();

        static QDateTime distantPast();
        bool operator==(const Snapshot&) const = default;
    };
    // Keyed by the log's absolute path as the folder listing gave it.
    using Snapshots = QHash<QString, Snapshot>;
    // What one scan found (see scanLogs).
    struct Scan {
        Snapshots logs;
        QStringList undecodable;
    };

    using StateCallback = std::function<void(const WatcherState&)>;
    // The log's absolute path and the next block of its UTF-8 text, as the
    // text is read (see readActivityLogInBlocks). A log's blocks come after
    // its processing state and before its onBuild or failed state.
    using TextCallback = std::function<void(const QString& logPath, QByteArray textBlock)>;
    // The log was read completely: its text is the blocks onBuildText had
    // since its processing state, none for an empty text.
    using BuildCallback = std::function<void(const QString& logPath)>;

    static constexpr std::chrono::milliseconds pollInterval{1500};

    // $HOME/Library/Developer/Xcode/DerivedData
    static QString defaultDerivedDataPath();

    explicit XcodeBuildWatcher(QString derivedDataPath = defaultDerivedDataPath(),
                               std::chrono::milliseconds interval = pollInterval, QObject* parent = nullptr);
    ~XcodeBuildWatcher() override;

    StateCallback onStateChange;
    TextCallback onBuildText;
    BuildCallback onBuild;

    // Sends watching, takes a baseline of the existing logs and starts
    // polling. Does nothing while already running.
    void start();
    // Stops polling and sends stopped, also when not running. A poll already
    // under way still finishes.
    void stop();
    bool isRunning() const;

    QString derivedDataPath() const;

    // The project a log belongs to: the DerivedData folder name before its
    // last "-", or "Xcode" for a path outside DerivedData.
    static QString projectNameForLog(const QString& logPath);

    // Every *.xcactivitylog regular file directly inside <entry>/Logs/Build of
    // each entry of the DerivedData folder. Hidden entries, symbolic links and
    // anything deeper are left out; folders that cannot be listed count as
    // empty. Project folders and logs whose names are not valid UTF-8 cannot
    // be opened by their decoded names: they are left out too, and their
    // paths (as decoded) go to `undecodable`. Blocks; the watcher runs it as
    // a background job.
    static Snapshots scanLogs(const QString& derivedDataPath, QStringList* undecodable = nullptr);

private:
    struct ReadyLog {
        QString path;
        Snapshot snapshot;
    };
    using ReadyLogs = QList<ReadyLog>;

    void poll(quint64 loop);
    void takeScan(quint64 loop, const Scan& scan);
    void reportUndecodable(const QStringList& paths);
    void processReady(quint64 loop, ReadyLogs ready, qsizetype next);
    void finishRead(quint64 loop, const ReadyLogs& ready, qsizetype next, const Snapshot& snapshot,
                    const Result<void>& read);
    void finishPoll(quint64 loop);
    void sendState(const WatcherState& state);

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace corvane
