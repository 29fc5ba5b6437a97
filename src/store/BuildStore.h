#pragma once

#include "BuildComparison.h"
#include "BuildDiagnostic.h"
#include "BuildSession.h"
#include "DiagnosticPreferenceKey.h"
#include "DiagnosticSeverity.h"
#include "DiagnosticVisibility.h"
#include "XcodeBuildWatcher.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUuid>

#include <array>
#include <memory>
#include <optional>

namespace corvane {

class BuildHistoryPersistence;
class DiagnosticPreferencesPersistence;
class DesktopPlatform;

// The application's single state object. Views read its published fields and
// derived values, call its operations, and redraw when it announces a change.
// It lives on the GUI thread; nothing in it locks.
class BuildStore : public QObject {
    Q_OBJECT

public:
    // The published fields, named in aboutToChange.
    enum class Field {
        sessions,
        activeSessionID,
        selectedDiagnosticID,
        severityFilter,
        searchText,
        captureState,
        lastWatcherMessage,
        showBuildNoise,
        warningViewMode,
        focusedProjectName,
        pinnedDiagnostics,
        ignoredDiagnostics,
    };
    Q_ENUM(Field)

    // What the watcher is doing, as the header shows it.
    struct CaptureState {
        using Kind = XcodeBuildWatcher::WatcherState::Kind;
        Kind kind = Kind::stopped;
        QString payload;

        // "WATCHING XCODE", "BUILD DETECTED • PROJECT", "READING BUILD • PROJECT",
        // "WATCHER ISSUE" or "WATCHER OFF".
        QString statusText() const;
        bool operator==(const CaptureState&) const = default;
    };

    using WarningViewMode = corvane::WarningViewMode;
    static constexpr std::array<WarningViewMode, 3> allWarningViewModes{
        WarningViewMode::normal, WarningViewMode::pinned, WarningViewMode::ignored};
    // "Warnings", "Pinned", "Ignored".
    static QString title(WarningViewMode mode);

    static constexpr qsizetype visibleSessionLimit = 10;
    static inline const QString manualProjectName = QStringLiteral("Manual");
    static inline const QString sampleSourceName = QStringLiteral("Sample Xcode Build");

    // Loads the preferences, the history and the focused project. Without a
    // platform the commands that need the desktop do nothing.
    explicit BuildStore(DesktopPlatform* platform = nullptr, QObject* parent = nullptr);
    ~BuildStore() override;

    // Published fields.
    const QList<BuildSession>& sessions() const;
    std::optional<QUuid> activeSessionID() const;
    std::optional<QUuid> selectedDiagnosticID() const;
    const QSet<DiagnosticSeverity>& severityFilter() const;
    const QString& searchText() const;
    const CaptureState& captureState() const;
    const std::optional<QString>& lastWatcherMessage() const;
    bool showBuildNoise() const;
    WarningViewMode warningViewMode() const;
    const std::optional<QString>& focusedProjectName() const;
    const QSet<DiagnosticPreferenceKey>& pinnedDiagnostics() const;
    const QSet<DiagnosticPreferenceKey>& ignoredDiagnostics() const;

    // The fields the views write directly. Each setter that can hide the
    // selected diagnostic repairs the selection itself.
    void setSelectedDiagnosticID(std::optional<QUuid> id);
    void setSeverityFilter(const QSet<DiagnosticSeverity>& filter);
    void setSearchText(const QString& text);
    void setShowBuildNoise(bool show);
    void setWarningViewMode(WarningViewMode mode);

    // Derived values, computed afresh on every read.
    std::optional<BuildSession> activeSession() const;
    BuildComparison activeComparison() const;
    QString statusText() const;
    QList<BuildDiagnostic> visibleDiagnostics() const;
    // The same list as positions in the active session's diagnostics, for
    // views that keep the session's list and need no copy of each record.
    QList<qsizetype> visibleDiagnosticPositions() const;
    // Whether visibleDiagnostics() would hold anything, without sorting it.
    bool hasVisibleDiagnostics() const;
    // visibleDiagnostics() by file, as the list's sections show it.
    QList<DiagnosticFileGroup> visibleDiagnosticGroups() const;
    QList<BuildDiagnostic> visibleFixedDiagnostics() const;
    // The fixed diagnostics narrowed by the search and the severity filter.
    QList<BuildDiagnostic> listedFixedDiagnostics() const;
    QList<BuildSession> visibleSessions() const;
    std::optional<BuildDiagnostic> selectedDiagnostic() const;
    QString preferenceProjectName() const;
    QStringList projectNames() const;
    bool isDiagnosticVisible(const BuildDiagnostic& diagnostic, const BuildSession& session) const;
    bool isPinned(const BuildDiagnostic& diagnostic) const;
    bool isIgnored(const BuildDiagnostic& diagnostic) const;

    // Capture and comparison.
    void captureBuild(const QByteArray& utf8Text, const QString& logPath);
    // The same for a log whose text arrives in blocks as it is read: each
    // block is searched as it comes, while the rest is still being read, and
    // let go, so a large log is never held whole. Blocks of another log start
    // afresh; captureReceivedBuild then captures what the log's blocks held.
    void receiveBuildText(const QString& logPath, QByteArrayView textBlock);
    void captureReceivedBuild(const QString& logPath);
    void captureManualLog(const QString& text, const QString& sourceName);
    void selectSession(const BuildSession& session);
    void ensureSelectionVisible();

    // Pins, ignores and focus.
    void togglePin(const BuildDiagnostic& diagnostic);
    void toggleIgnore(const BuildDiagnostic& diagnostic);
    void setFocusedProject(const std::optional<QString>& projectName);

    // User commands.
    void importPlainTextLog();
    // The import without the chooser: a log named on the command line.
    void importLogFile(const QString& path);
    void loadSampleDiagnostics();
    // Starts the watcher of $HOME's DerivedData folder, created on first use;
    // does nothing while it runs.
    void startWatching();
    void restartWatcher();
    void clearHistory();

Q_SIGNALS:
    // Emitted before every assignment to a published field. Views schedule a
    // redraw and read the new state afterwards.
    void aboutToChange(corvane::BuildStore::Field field);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace corvane
