#include "BuildStore.h"

#include "BuildHistoryPersistence.h"
#include "DesktopPlatform.h"
#include "DiagnosticParser.h"
#include "DiagnosticPreferencesPersistence.h"
#include "ProjectFocusDefaults.h"
#include "StorageFile.h"
#include "UserCommands.h"

#include <QFileInfo>
#include <QPointer>
#include <QStringBuilder>

#include <algorithm>
#include <string_view>

namespace corvane {

namespace {

using Kind = XcodeBuildWatcher::WatcherState::Kind;

QString sourceNameForBuild(const QString& projectName, qsizetype meaningfulCount)
{
    const QString dash = QStringLiteral(" \u2014 ");
    if (meaningfulCount == 0)
        return projectName % dash % u"Clean";
    return projectName % dash % QString::number(meaningfulCount) % u" diagnostic"
        % (meaningfulCount == 1 ? QString() : QStringLiteral("s"));
}

} // namespace

// ---------------------------------------------------------------------------
// CaptureState and WarningViewMode

QString BuildStore::CaptureState::statusText() const
{
    const QString bullet = QStringLiteral(" \u2022 ");
    switch (kind) {
    case Kind::watching:
        return QStringLiteral("WATCHING XCODE");
    case Kind::buildDetected:
        return u"BUILD DETECTED" % bullet % payload.toUpper();
    case Kind::processing:
        return u"READING BUILD" % bullet % payload.toUpper();
    case Kind::failed:
        return QStringLiteral("WATCHER ISSUE");
    case Kind::stopped:
        break;
    }
    return QStringLiteral("WATCHER OFF");
}

QString BuildStore::title(WarningViewMode mode)
{
    switch (mode) {
    case WarningViewMode::pinned:
        return QStringLiteral("Pinned");
    case WarningViewMode::ignored:
        return QStringLiteral("Ignored");
    case WarningViewMode::normal:
        break;
    }
    return QStringLiteral("Warnings");
}

// ---------------------------------------------------------------------------
// State

struct BuildStore::Private {
    Private(BuildStore* store, DesktopPlatform* desktop) : q(store), platform(desktop) {}

    BuildStore* q;
    DesktopPlatform* platform;

    QList<BuildSession> sessions;
    std::optional<QUuid> activeSessionID;
    std::optional<QUuid> selectedDiagnosticID;
    QSet<DiagnosticSeverity> severityFilter{DiagnosticSeverity::error, DiagnosticSeverity::warning};
    QString searchText;
    CaptureState captureState;
    std::optional<QString> lastWatcherMessage;
    bool showBuildNoise = false;
    WarningViewMode warningViewMode = WarningViewMode::normal;
    std::optional<QString> focusedProjectName;
    QSet<DiagnosticPreferenceKey> pinnedDiagnostics;
    QSet<DiagnosticPreferenceKey> ignoredDiagnostics;

    DiagnosticParser parser;
    BuildHistoryPersistence persistence;
    DiagnosticPreferencesPersistence preferencePersistence;
    std::unique_ptr<XcodeBuildWatcher> watcherInstance;
    // The log whose text is being received, and that text searched so far.
    QString receivingLogPath;
    std::unique_ptr<DiagnosticParser::Stream> receivedText;

    // The only places that write the published fields: each announces the
    // change while the old value is still in place.
    template <typename T>
    void assign(Field field, T& member, T value)
    {
        Q_EMIT q->aboutToChange(field);
        member = std::move(value);
    }
    void setSessions(QList<BuildSession> v) { assign(Field::sessions, sessions, std::move(v)); }
    void setActiveSessionID(std::optional<QUuid> v) { assign(Field::activeSessionID, activeSessionID, v); }
    void setSelectedDiagnosticID(std::optional<QUuid> v)
    {
        assign(Field::selectedDiagnosticID, selectedDiagnosticID, v);
    }
    void setSeverityFilter(QSet<DiagnosticSeverity> v) { assign(Field::severityFilter, severityFilter, std::move(v)); }
    void setSearchText(QString v) { assign(Field::searchText, searchText, std::move(v)); }
    void setCaptureState(CaptureState v) { assign(Field::captureState, captureState, std::move(v)); }
    void setLastWatcherMessage(std::optional<QString> v)
    {
        assign(Field::lastWatcherMessage, lastWatcherMessage, std::move(v));
    }
    void setShowBuildNoise(bool v) { assign(Field::showBuildNoise, showBuildNoise, v); }
    void setWarningViewMode(WarningViewMode v) { assign(Field::warningViewMode, warningViewMode, v); }
    void setFocusedProjectName(std::optional<QString> v)
    {
        assign(Field::focusedProjectName, focusedProjectName, std::move(v));
    }
    void setPinnedDiagnostics(QSet<DiagnosticPreferenceKey> v)
    {
        assign(Field::pinnedDiagnostics, pinnedDiagnostics, std::move(v));
    }
    void setIgnoredDiagnostics(QSet<DiagnosticPreferenceKey> v)
    {
        assign(Field::ignoredDiagnostics, ignoredDiagnostics, std::move(v));
    }

    const BuildSession* activeSession() const
    {
        if (sessions.isEmpty())
            return nullptr;
        if (activeSessionID) {
            for (const BuildSession& session : sessions) {
                if (session.id == *activeSessionID)
                    return &session;
            }
        }
        return &sessions.first();
    }

    // The filter settings of one read, gathered once for all diagnostics.
    DiagnosticVisibility visibility() const
    {
        return DiagnosticVisibility(
            {severityFilter, searchText, showBuildNoise, warningViewMode, pinnedDiagnostics, ignoredDiagnostics});
    }

    const BuildSession* newestSession(const QString& projectName) const
    {
        for (const BuildSession& session : sessions) {
            if (session.projectName == projectName)
                return &session;
        }
        return nullptr;
    }

    void insertSession(BuildSession session)
    {
        QList<BuildSession> updated = sessions;
        updated.prepend(std::move(session));
        // The oldest builds beyond the limit are gone for good.
        if (updated.size() > historyLimit)
            updated.resize(historyLimit);
        setSessions(std::move(updated));
    }

    void loadPreferences()
    {
        DiagnosticPreferencesPersistence::Preferences loaded = preferencePersistence.load();
        setPinnedDiagnostics(std::move(loaded.pinned));
        setIgnoredDiagnostics(std::move(loaded.ignored));
    }

    void loadHistory()
    {
        Result<QList<BuildSession>> loaded = persistence.load();
        if (!loaded) {
            setSessions({});
            return;
        }
        QList<BuildSession> list = std::move(loaded).value();
        if (list.size() > historyLimit)
            list.resize(historyLimit);
        setSessions(std::move(list));
        if (!sessions.isEmpty()) {
            const BuildSession first = sessions.first();
            setActiveSessionID(first.id);
            selectDefaultDiagnostic(first.diagnostics, first.comparison.newDiagnosticIDs, Candidates::all);
        }
    }

    void restoreFocus()
    {
        const std::optional<QString> stored = ProjectFocusDefaults::load();
        if (!stored) {
            setFocusedProjectName(std::nullopt);
            return;
        }
        const QString name = *stored;
        if (!q->projectNames().contains(name)) {
            setFocusedProjectName(std::nullopt);
            ProjectFocusDefaults::save(std::nullopt);
            return;
        }
        setFocusedProjectName(name);
        if (const BuildSession* found = newestSession(name)) {
            const BuildSession session = *found;
            setActiveSessionID(session.id);
            selectDefaultDiagnostic(session.diagnostics, session.comparison.newDiagnosticIDs, Candidates::all);
        }
    }

    void savePreferences() const
    {
        // A failed save keeps the sets in memory; the next toggle writes them again.
        (void)preferencePersistence.save(pinnedDiagnostics, ignoredDiagnostics);
    }

    void toggle(const BuildDiagnostic& diagnostic, bool pin)
    {
        if (diagnostic.severity != DiagnosticSeverity::warning)
            return;
        const DiagnosticPreferenceKey key{q->preferenceProjectName(), diagnostic.signature()};
        QSet<DiagnosticPreferenceKey> own = pin ? pinnedDiagnostics : ignoredDiagnostics;
        if (own.contains(key)) {
            own.remove(key);
            pin ? setPinnedDiagnostics(std::move(own)) : setIgnoredDiagnostics(std::move(own));
        } else {
            own.insert(key);
            pin ? setPinnedDiagnostics(std::move(own)) : setIgnoredDiagnostics(std::move(own));
            QSet<DiagnosticPreferenceKey> other = pin ? ignoredDiagnostics : pinnedDiagnostics;
            if (other.remove(key))
                pin ? setIgnoredDiagnostics(std::move(other)) : setPinnedDiagnostics(std::move(other));
        }
        savePreferences();
        q->ensureSelectionVisible();
    }

    enum class Candidates { all, shown };

    // With Candidates::shown, among the diagnostics the list shows: build
    // noise is passed over in place rather than a huge build's list being
    // copied without it.
    void selectDefaultDiagnostic(const QList<BuildDiagnostic>& diagnostics, const QSet<QUuid>& newIDs,
                                 Candidates candidates)
    {
        const bool passOverNoise = candidates == Candidates::shown && !showBuildNoise;
        const auto firstWhere = [&](auto predicate) -> std::optional<QUuid> {
            const auto found = std::find_if(diagnostics.cbegin(), diagnostics.cend(), [&](const BuildDiagnostic& d) {
                return predicate(d) && !(passOverNoise && d.isBuildNoise());
            });
            return found == diagnostics.cend() ? std::nullopt : std::optional(found->id);
        };
        const auto ofSeverity = [](DiagnosticSeverity severity) {
            return [severity](const BuildDiagnostic& d) { return d.severity == severity; };
        };
        std::optional<QUuid> chosen = firstWhere([&](const BuildDiagnostic& d) { return newIDs.contains(d.id); });
        if (!chosen)
            chosen = firstWhere(ofSeverity(DiagnosticSeverity::error));
        if (!chosen)
            chosen = firstWhere(ofSeverity(DiagnosticSeverity::warning));
        if (!chosen)
            chosen = firstWhere([](const BuildDiagnostic&) { return true; });
        setSelectedDiagnosticID(chosen);
    }

    void applyWatcherState(const XcodeBuildWatcher::WatcherState& state)
    {
        setCaptureState(CaptureState{state.kind, state.payload});
        if (state.kind == Kind::failed)
            setLastWatcherMessage(state.payload);
        // A read begins, or one ended without its log: any text received
        // before belongs to no capture.
        if (state.kind == Kind::processing || state.kind == Kind::failed)
            receivedText.reset();
    }

    void capture(QList<BuildDiagnostic> diagnostics, const QString& logPath)
    {
        const QString projectName = XcodeBuildWatcher::projectNameForLog(logPath);
        const BuildSession* previous = newestSession(projectName);
        const bool hasPrevious = previous != nullptr;
        // Builds of a huge project repeat most of their texts; the history holds
        // them once rather than once per build.
        BuildComparison comparison =
            compareDiagnosticsSharingTexts(diagnostics, previous ? std::optional(previous->diagnostics) : std::nullopt);
        const qsizetype meaningful = std::count_if(diagnostics.cbegin(), diagnostics.cend(),
                                                   [](const BuildDiagnostic& d) { return !d.isBuildNoise(); });

        BuildSession session;
        session.id = QUuid::createUuid();
        session.startedAt = AbsoluteTime::now();
        session.diagnostics = std::move(diagnostics);
        session.sourceName = sourceNameForBuild(projectName, meaningful);
        session.projectName = projectName;
        session.activityLogPath = logPath;
        session.comparison = std::move(comparison);
        const BuildSession captured = session;
        insertSession(std::move(session));

        if (!focusedProjectName || *focusedProjectName == projectName) {
            setActiveSessionID(captured.id);
            setWarningViewMode(WarningViewMode::normal);
            selectDefaultDiagnostic(captured.diagnostics, captured.comparison.newDiagnosticIDs, Candidates::shown);
            setLastWatcherMessage(hasPrevious
                                      ? QString(u"Compared with the previous " % projectName % u" build.")
                                      : QString(u"Build captured. Baseline established for " % projectName % u"."));
        }

        // A failed save leaves the history in memory; the next capture writes it all again.
        (void)persistence.save(sessions);
    }

    // Created and wired to the store on first use; not started here.
    XcodeBuildWatcher& watcher()
    {
        if (!watcherInstance) {
            watcherInstance = std::make_unique<XcodeBuildWatcher>();
            // A background read may finish after the store is gone; the
            // pointer then reads null and the result is dropped.
            const QPointer<BuildStore> store(q);
            watcherInstance->onStateChange = [store](const XcodeBuildWatcher::WatcherState& state) {
                if (store)
                    store->d->applyWatcherState(state);
            };
            watcherInstance->onBuildText = [store](const QString& logPath, const QByteArray& textBlock) {
                if (store)
                    store->receiveBuildText(logPath, textBlock);
            };
            watcherInstance->onBuild = [store](const QString& logPath) {
                if (store)
                    store->captureReceivedBuild(logPath);
            };
        }
        return *watcherInstance;
    }
};

BuildStore::BuildStore(DesktopPlatform* platform, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>(this, platform))
{
    d->loadPreferences();
    d->loadHistory();
    d->restoreFocus();
}

BuildStore::~BuildStore() = default;

const QList<BuildSession>& BuildStore::sessions() const { return d->sessions; }
std::optional<QUuid> BuildStore::activeSessionID() const { return d->activeSessionID; }
std::optional<QUuid> BuildStore::selectedDiagnosticID() const { return d->selectedDiagnosticID; }
const QSet<DiagnosticSeverity>& BuildStore::severityFilter() const { return d->severityFilter; }
const QString& BuildStore::searchText() const { return d->searchText; }
const BuildStore::CaptureState& BuildStore::captureState() const { return d->captureState; }
const std::optional<QString>& BuildStore::lastWatcherMessage() const { return d->lastWatcherMessage; }
bool BuildStore::showBuildNoise() const { return d->showBuildNoise; }
BuildStore::WarningViewMode BuildStore::warningViewMode() const { return d->warningViewMode; }
const std::optional<QString>& BuildStore::focusedProjectName() const { return d->focusedProjectName; }
const QSet<DiagnosticPreferenceKey>& BuildStore::pinnedDiagnostics() const { return d->pinnedDiagnostics; }
const QSet<DiagnosticPreferenceKey>& BuildStore::ignoredDiagnostics() const { return d->ignoredDiagnostics; }

void BuildStore::setSelectedDiagnosticID(std::optional<QUuid> id) { d->setSelectedDiagnosticID(id); }

// Writing a filter's current value again is no change, and leaves even a
// selection the list does not show alone.
void BuildStore::setSeverityFilter(const QSet<DiagnosticSeverity>& filter)
{
    const bool changed = filter != d->severityFilter;
    d->setSeverityFilter(filter);
    if (changed)
        ensureSelectionVisible();
}

void BuildStore::setSearchText(const QString& text)
{
    const bool changed = text != d->searchText;
    d->setSearchText(text);
    if (changed)
        ensureSelectionVisible();
}

void BuildStore::setShowBuildNoise(bool show)
{
    const bool changed = show != d->showBuildNoise;
    d->setShowBuildNoise(show);
    if (changed)
        ensureSelectionVisible();
}

void BuildStore::setWarningViewMode(WarningViewMode mode)
{
    const bool changed = mode != d->warningViewMode;
    d->setWarningViewMode(mode);
    if (changed)
        ensureSelectionVisible();
}

// ---------------------------------------------------------------------------
// Active session

std::optional<BuildSession> BuildStore::activeSession() const
{
    if (const BuildSession* session = d->activeSession())
        return *session;
    return std::nullopt;
}

BuildComparison BuildStore::activeComparison() const
{
    if (const BuildSession* session = d->activeSession())
        return session->comparison;
    return BuildComparison::empty();
}

QString BuildStore::statusText() const { return d->captureState.statusText(); }

// ---------------------------------------------------------------------------
// Capture and comparison

void BuildStore::captureBuild(const QByteArray& utf8Text, const QString& logPath)
{
    d->capture(d->parser.parse(std::string_view(utf8Text.constData(), size_t(utf8Text.size()))), logPath);
}

void BuildStore::receiveBuildText(const QString& logPath, QByteArrayView textBlock)
{
    if (!d->receivedText || d->receivingLogPath != logPath) {
        d->receivingLogPath = logPath;
        d->receivedText = std::make_unique<DiagnosticParser::Stream>(d->parser);
    }
    d->receivedText->append(std::string_view(textBlock.data(), size_t(textBlock.size())));
}

void BuildStore::captureReceivedBuild(const QString& logPath)
{
    // No block at all is an empty text.
    QList<BuildDiagnostic> diagnostics;
    if (d->receivedText && d->receivingLogPath == logPath)
        diagnostics = d->receivedText->finish();
    d->receivedText.reset();
    d->capture(std::move(diagnostics), logPath);
}

void BuildStore::captureManualLog(const QString& text, const QString& sourceName)
{
    BuildSession session;
    session.id = QUuid::createUuid();
    session.startedAt = AbsoluteTime::now();
    session.diagnostics = d->parser.parse(text);
    session.sourceName = sourceName;
    session.projectName = manualProjectName;
    const BuildSession captured = session;
    d->insertSession(std::move(session));

    if (!d->focusedProjectName) {
        d->setActiveSessionID(captured.id);
        d->setWarningViewMode(WarningViewMode::normal);
        d->selectDefaultDiagnostic(captured.diagnostics, {}, Private::Candidates::all);
    }

    (void)d->persistence.save(d->sessions);
}

void BuildStore::selectSession(const BuildSession& session)
{
    const BuildSession chosen = session; // the argument may live in `sessions`
    d->setActiveSessionID(chosen.id);
    d->setWarningViewMode(WarningViewMode::normal);
    d->selectDefaultDiagnostic(chosen.diagnostics, chosen.comparison.newDiagnosticIDs, Private::Candidates::shown);
}

// ---------------------------------------------------------------------------
// What is shown

bool BuildStore::isDiagnosticVisible(const BuildDiagnostic& diagnostic, const BuildSession& session) const
{
    return d->visibility().isVisible(diagnostic, session.projectName);
}

QList<BuildDiagnostic> BuildStore::visibleDiagnostics() const
{
    const BuildSession* session = d->activeSession();
    if (!session)
        return {};
    const QList<qsizetype> positions = visibleDiagnosticPositions();
    QList<BuildDiagnostic> visible;
    visible.reserve(positions.size());
    for (const qsizetype position : positions)
        visible.append(session->diagnostics.at(position));
    return visible;
}

QList<qsizetype> BuildStore::visibleDiagnosticPositions() const
{
    const BuildSession* session = d->activeSession();
    return session ? d->visibility().order(*session) : QList<qsizetype>();
}

QList<DiagnosticFileGroup> BuildStore::visibleDiagnosticGroups() const
{
    const BuildSession* session = d->activeSession();
    return session ? d->visibility().fileGroups(*session) : QList<DiagnosticFileGroup>();
}

QList<BuildDiagnostic> BuildStore::visibleFixedDiagnostics() const
{
    const BuildSession* session = d->activeSession();
    return session ? d->visibility().fixedDiagnostics(session->comparison) : QList<BuildDiagnostic>();
}

QList<BuildDiagnostic> BuildStore::listedFixedDiagnostics() const
{
    const BuildSession* session = d->activeSession();
    return session ? d->visibility().listedFixedDiagnostics(session->comparison) : QList<BuildDiagnostic>();
}

QList<BuildSession> BuildStore::visibleSessions() const
{
    QList<BuildSession> shown;
    for (const BuildSession& session : d->sessions) {
        if (shown.size() == visibleSessionLimit)
            break;
        if (!d->focusedProjectName || session.projectName == *d->focusedProjectName)
            shown.append(session);
    }
    return shown;
}

std::optional<BuildDiagnostic> BuildStore::selectedDiagnostic() const
{
    if (!d->selectedDiagnosticID)
        return std::nullopt;
    const QUuid id = *d->selectedDiagnosticID;
    const BuildSession* session = d->activeSession();
    if (!session)
        return std::nullopt;
    for (const BuildDiagnostic& diagnostic : session->diagnostics) {
        if (diagnostic.id == id)
            return diagnostic;
    }
    for (const BuildDiagnostic& diagnostic : session->comparison.fixedDiagnostics) {
        if (diagnostic.id == id)
            return diagnostic;
    }
    return std::nullopt;
}

bool BuildStore::hasVisibleDiagnostics() const
{
    const BuildSession* session = d->activeSession();
    return session && d->visibility().anyVisible(*session);
}

void BuildStore::ensureSelectionVisible()
{
    // The common case, a selection that stays in view, needs no sorted list.
    if (const BuildSession* session = d->activeSession(); session && d->selectedDiagnosticID) {
        const QUuid id = *d->selectedDiagnosticID;
        const auto selected = std::find_if(session->diagnostics.cbegin(), session->diagnostics.cend(),
                                           [&](const BuildDiagnostic& diagnostic) { return diagnostic.id == id; });
        if (selected != session->diagnostics.cend() && isDiagnosticVisible(*selected, *session))
            return;
    }
    const BuildSession* session = d->activeSession();
    const QList<qsizetype> visible = visibleDiagnosticPositions();
    d->setSelectedDiagnosticID(visible.isEmpty() ? std::nullopt
                                                 : std::optional(session->diagnostics.at(visible.first()).id));
}

// ---------------------------------------------------------------------------
// Pins, ignores and focus

QString BuildStore::preferenceProjectName() const
{
    const BuildSession* session = d->activeSession();
    return session ? session->projectName : manualProjectName;
}

bool BuildStore::isPinned(const BuildDiagnostic& diagnostic) const
{
    return diagnostic.severity == DiagnosticSeverity::warning
        && d->pinnedDiagnostics.contains({preferenceProjectName(), diagnostic.signature()});
}

bool BuildStore::isIgnored(const BuildDiagnostic& diagnostic) const
{
    return diagnostic.severity == DiagnosticSeverity::warning
        && d->ignoredDiagnostics.contains({preferenceProjectName(), diagnostic.signature()});
}

void BuildStore::togglePin(const BuildDiagnostic& diagnostic) { d->toggle(diagnostic, true); }
void BuildStore::toggleIgnore(const BuildDiagnostic& diagnostic) { d->toggle(diagnostic, false); }

QStringList BuildStore::projectNames() const
{
    QStringList names;
    QSet<QString> seen;
    for (const BuildSession& session : d->sessions) {
        if (session.projectName == manualProjectName || seen.contains(session.projectName))
            continue;
        seen.insert(session.projectName);
        names.append(session.projectName);
    }
    return nameCollation::sorted(names);
}

void BuildStore::setFocusedProject(const std::optional<QString>& projectName)
{
    const std::optional<QString> name = projectName; // may alias our own field
    d->setFocusedProjectName(name);
    ProjectFocusDefaults::save(name);

    const BuildSession* target =
        name ? d->newestSession(*name) : (d->sessions.isEmpty() ? nullptr : &d->sessions.first());
    if (target) {
        selectSession(*target);
    } else {
        d->setActiveSessionID(std::nullopt);
        d->setSelectedDiagnosticID(std::nullopt);
    }
}

// ---------------------------------------------------------------------------
// User commands

void BuildStore::importPlainTextLog()
{
    if (!d->platform)
        return;
    const std::optional<QString> path =
        d->platform->chooseLogFile(QStringLiteral("Choose a plain-text Xcode or compiler build log."));
    if (!path || path->isEmpty())
        return;
    importLogFile(*path);
}

void BuildStore::importLogFile(const QString& path)
{
    const Result<QString> text = StorageFile::readUtf8Text(path);
    if (!text) {
        if (d->platform)
            d->platform->showAlert(QStringLiteral("Corvane"),
                                   u"Corvane could not read that log file.\n\n" % text.error().description);
        return;
    }
    captureManualLog(text.value(), QFileInfo(path).fileName());
}

void BuildStore::loadSampleDiagnostics() { captureManualLog(sampleBuildLog(), sampleSourceName); }

void BuildStore::startWatching() { d->watcher().start(); }

void BuildStore::restartWatcher()
{
    XcodeBuildWatcher& watcher = d->watcher();
    watcher.stop();
    watcher.start();
}

void BuildStore::clearHistory()
{
    d->setSessions({});
    d->setActiveSessionID(std::nullopt);
    d->setSelectedDiagnosticID(std::nullopt);
    d->setFocusedProjectName(std::nullopt);
    d->setWarningViewMode(WarningViewMode::normal);
    d->setSearchText(QString());
    d->setLastWatcherMessage(std::nullopt);
    ProjectFocusDefaults::save(std::nullopt);
    ensureSelectionVisible();
    const Result<void> cleared = d->persistence.clear();
    if (!cleared)
        d->setLastWatcherMessage(u"Could not clear saved build history: " % cleared.error().description);
}

} // namespace corvane
