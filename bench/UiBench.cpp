// corvane-bench ui: how long the window takes to show the result of one user
// action on a 10,000-diagnostic build, from the store change through the
// queued refreshes to a full repaint of what is visible.
#ifdef CORVANE_BENCH_WITH_UI

#include "BenchCommand.h"
#include "BuildStore.h"
#include "ContentView.h"
#include "DiagnosticDetailView.h"
#include "DiagnosticListView.h"
#include "DesktopPlatform.h"
#include "Theme.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPixmap>
#include <QRandomGenerator>
#include <QSettings>
#include <QSplitter>
#include <QTemporaryDir>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

namespace corvane::bench {
namespace {

// Does nothing: the benchmark never copies or opens anything.
class QuietPlatform : public DesktopPlatform {
public:
    std::optional<QString> chooseLogFile(const QString&) override { return std::nullopt; }
    void showAlert(const QString&, const QString&) override {}
    void setClipboardText(const QString&) override {}
    bool startDetached(const QString&, const QStringList&) override { return false; }
    void openWithDefaultApplication(const QString&) override {}
};

// `count` distinct located diagnostics over 400 files in mixed letter case,
// a third of them with messages long enough to wrap. `shift` moves about one
// in twenty, so two logs compare as a real rebuild (NEW and FIXED rows).
QByteArray buildLog(int count, int shift)
{
    static const char* const severities[] = {"warning", "warning", "error", "note", "warning"};
    QByteArray text;
    text.reserve(qsizetype(count) * 200);
    for (int i = 0; i < count; ++i) {
        const int variant = (i % 20 == 0) ? shift : 0;
        text += "/Users/dev/Code/App/Sources/Feature";
        text += QByteArray::number(i % 400);
        text += (i % 3 == 0) ? "/settingsStore.swift:" : "/ContentView.swift:";
        text += QByteArray::number(i / 3 + 1 + variant);
        text += ':';
        text += QByteArray::number(i % 80 + 1);
        text += ": ";
        text += severities[i % 5];
        text += ": value 'item";
        text += QByteArray::number(i);
        text += "' was defined but never used";
        if (i % 3 == 1)
            text += "; consider replacing it with '_' or removing it, since the compiler "
                    "cannot see any read of it on any path through this function";
        text += "\r";
    }
    return text;
}

QString logPath(const QString& home, int index)
{
    return home + QStringLiteral("/Library/Developer/Xcode/DerivedData/App-bxqgrvhdkslrtw/Logs/Build/")
        + QString::number(index) + QStringLiteral(".xcactivitylog");
}

// Runs everything the change queued (store refreshes, layout requests, the
// list's deferred item layout).
void runQueued()
{
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
    }
}

// ... and then paints every visible widget.
void showResult(QWidget& window)
{
    runQueued();
    const QPixmap painted = window.grab();
    Q_UNUSED(painted);
}

struct Figures {
    const char* name;
    std::vector<double> milliseconds;  // whole update, wall clock
    std::vector<double> cpuMilliseconds;  // whole update, this thread's CPU time
    std::vector<double> paintEvents;  // widgets painted by the update
    std::vector<double> grabMilliseconds;  // a full repaint of the window, for comparison
};

// Counts the paint events the window's widgets receive, to show that an
// update's figure includes painting what it changed.
class PaintCounter : public QObject {
public:
    int paints = 0;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return QObject::eventFilter(watched, event);
    }
};

PaintCounter* paintCounter = nullptr;

// CPU time of the calling thread: on a machine shared with other work the
// wall clock also counts the time other processes held the cores.
double threadCpuMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double percentile(std::vector<double> v, double q)
{
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(q * double(v.size())))];
}

void report(const Figures& f)
{
    std::printf("%-28s runs %3zu  wall median %6.2f p95 %6.2f max %6.2f ms  cpu median %6.2f p95 %6.2f ms"
                "  (paints median %3.0f; full-window grab %5.2f ms)\n",
                f.name, f.milliseconds.size(), percentile(f.milliseconds, 0.5), percentile(f.milliseconds, 0.95),
                percentile(f.milliseconds, 1.0), percentile(f.cpuMilliseconds, 0.5),
                percentile(f.cpuMilliseconds, 0.95), percentile(f.paintEvents, 0.5),
                percentile(f.grabMilliseconds, 0.5));
}

template <typename Action>
void timed(Figures& figures, QWidget& window, Action&& action)
{
    // The update ends when the window has repainted what changed: the
    // widgets' update requests are posted events, delivered by runQueued().
    const int paintsBefore = paintCounter->paints;
    const double cpuStart = threadCpuMilliseconds();
    QElapsedTimer timer;
    timer.start();
    action();
    runQueued();
    figures.milliseconds.push_back(double(timer.nsecsElapsed()) / 1e6);
    figures.cpuMilliseconds.push_back(threadCpuMilliseconds() - cpuStart);
    figures.paintEvents.push_back(paintCounter->paints - paintsBefore);
    // Painting the whole window again is not part of an update; it is shown
    // beside it as the upper bound of what any repaint can cost.
    QElapsedTimer grabTimer;
    grabTimer.start();
    const QPixmap painted = window.grab();
    Q_UNUSED(painted);
    figures.grabMilliseconds.push_back(double(grabTimer.nsecsElapsed()) / 1e6);
}

void typeCharacter(QWidget& field, QChar c)
{
    QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
    QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(c));
    QApplication::sendEvent(&field, &press);
    QApplication::sendEvent(&field, &release);
}

// The list beside the detail view, wired as the window wires them: the
// detail view shows the store's selected diagnostic after every change.
std::unique_ptr<QWidget> listAndDetail(BuildStore& store, DesktopPlatform& platform)
{
    auto splitter = std::make_unique<QSplitter>();
    new DiagnosticListView(store, splitter.get());
    auto* detail = new DiagnosticDetailView(store, platform, theme::cardColor(), theme::edge(), splitter.get());
    splitter->setSizes({470, 970});
    auto pending = std::make_shared<bool>(false);
    QObject::connect(&store, &BuildStore::aboutToChange, detail, [&store, detail, pending] {
        if (std::exchange(*pending, true))
            return;
        QMetaObject::invokeMethod(
            detail,
            [&store, detail, pending] {
                *pending = false;
                if (const std::optional<BuildDiagnostic> selected = store.selectedDiagnostic())
                    detail->setDiagnostic(*selected);
            },
            Qt::QueuedConnection);
    });
    return splitter;
}

int runUiBench(const std::vector<std::string>& arguments)
{
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        std::fprintf(stderr, "corvane-bench ui needs a widget application\n");
        return 1;
    }
    const int count = arguments.empty() ? 10000 : std::stoi(arguments[0]);
    // A second argument runs one kind of update only, for profiling.
    const std::string only = arguments.size() > 1 && arguments[1] != "all" ? arguments[1] : std::string();
    const auto runs = [&only](const char* kind, int n) { return only.empty() || only == kind ? n : 0; };
    // A third, "views", measures the diagnostic list and the detail view
    // alone, without the rest of the window.
    const bool viewsOnly = arguments.size() > 2 && arguments[2] == "views";

    // The store saves its history; keep that away from the user's files.
    QTemporaryDir dir;
    qputenv("HOME", (dir.path() + QStringLiteral("/home")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", (dir.path() + QStringLiteral("/data")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (dir.path() + QStringLiteral("/config")).toLocal8Bit());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path() + QStringLiteral("/config"));
    const QString home = dir.path() + QStringLiteral("/home");

    theme::applyTheme(*qApp);
    PaintCounter counter;
    paintCounter = &counter;
    qApp->installEventFilter(&counter);
    QuietPlatform platform;
    BuildStore store(&platform);
    std::unique_ptr<QWidget> shown;
    if (viewsOnly)
        shown = listAndDetail(store, platform);
    else
        shown = std::make_unique<ContentView>(store, platform);
    QWidget& window = *shown;
    window.resize(1440, 900);
    window.show();
    showResult(window);

    store.captureBuild(buildLog(count, 0), logPath(home, 1));
    showResult(window);
    QElapsedTimer firstShow;
    firstShow.start();
    store.captureBuild(buildLog(count, 7), logPath(home, 2));
    showResult(window);
    std::printf("diagnostics %d, visible %lld, new %lld, fixed %lld\n", count,
                qlonglong(store.visibleDiagnostics().size()),
                qlonglong(store.activeComparison().newDiagnosticIDs.size()),
                qlonglong(store.visibleFixedDiagnostics().size()));
    std::printf("%-28s %.2f ms\n", "capture and first display", double(firstShow.nsecsElapsed()) / 1e6);

    QRandomGenerator random(42);
    const QList<BuildDiagnostic> visible = store.visibleDiagnostics();
    Figures selecting{"select a diagnostic", {}, {}, {}, {}};
    for (int i = 0; i < runs("select", 60); ++i) {
        const QUuid id = visible[random.bounded(int(visible.size()))].id;
        timed(selecting, window, [&] { store.setSelectedDiagnosticID(id); });
    }

    // What the severity menu does: write the filter, then repair the selection.
    const QSet<DiagnosticSeverity> filters[] = {
        {DiagnosticSeverity::error},
        {DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note},
        {DiagnosticSeverity::warning},
        {DiagnosticSeverity::error, DiagnosticSeverity::warning},
    };
    Figures filtering{"change the severity filter", {}, {}, {}, {}};
    for (int i = 0; i < runs("filter", 40); ++i) {
        timed(filtering, window, [&] {
            store.setSeverityFilter(filters[i % 4]);
            store.ensureSelectionVisible();
        });
    }

    // Typed into the header's search field, one key at a time; emptying the
    // field between words is not measured.
    QLineEdit* search = nullptr;
    for (QLineEdit* field : window.findChildren<QLineEdit*>()) {
        if (field->placeholderText() == QStringLiteral("FILTER DIAGNOSTICS"))
            search = field;
    }
    if (!search && !viewsOnly) {
        std::fprintf(stderr, "no search field found\n");
        return 1;
    }
    if (search)
        search->setFocus();
    Figures typing{"type into the search field", {}, {}, {}, {}};
    QStringList words{QStringLiteral("never used"), QStringLiteral("feature12"), QStringLiteral("settingsstore"),
                      QStringLiteral("item77")};
    if (runs("type", 1) == 0)
        words.clear();
    for (const QString& word : std::as_const(words)) {
        for (const QChar c : word)
            timed(typing, window, [&] {
                if (search)
                    typeCharacter(*search, c);
                else
                    store.setSearchText(store.searchText() + c);
            });
        if (store.searchText() != word) {
            std::fprintf(stderr, "the search field does not reach the store\n");
            return 1;
        }
        if (search)
            search->clear();
        store.setSearchText(QString());
        showResult(window);
    }
    // The store's own share: the list of visible diagnostics, which every
    // view that needs it computes afresh.
    Figures visibleList{"store.visibleDiagnostics()", {}, {}, {}, {}};
    for (int i = 0; i < 20; ++i) {
        const double cpuStart = threadCpuMilliseconds();
        QElapsedTimer timer;
        timer.start();
        const QList<BuildDiagnostic> list = store.visibleDiagnostics();
        visibleList.milliseconds.push_back(double(timer.nsecsElapsed()) / 1e6);
        visibleList.paintEvents.push_back(0);
        visibleList.grabMilliseconds.push_back(0);
        visibleList.cpuMilliseconds.push_back(threadCpuMilliseconds() - cpuStart);
    }

    // Last, as it adds a build: one error whose message is an enormous
    // unbroken word, as a damaged or hostile log can hold. Selecting it (and
    // leaving it for an ordinary one) must not stall the window.
    Figures hugeSelecting{"select a huge message", {}, {}, {}, {}};
    Figures hugeLeaving{"leave a huge message", {}, {}, {}, {}};
    if (const int hugeRuns = runs("huge", 20)) {
        const qsizetype bytes = arguments.size() > 3 ? std::stoll(arguments[3]) : 5'000'000;
        QByteArray log = buildLog(100, 0);
        log += "/a/b.c:1:2: error: " + QByteArray(bytes, 'x') + '\r';
        QElapsedTimer hugeShow;
        hugeShow.start();
        store.captureBuild(log, logPath(home, 3));
        showResult(window);
        std::printf("%-28s %.2f ms  (message of %lld bytes)\n", "capture a huge message",
                    double(hugeShow.nsecsElapsed()) / 1e6, qlonglong(bytes));
        QUuid huge;
        QUuid ordinary;
        for (const BuildDiagnostic& d : store.visibleDiagnostics()) {
            if (d.message.size() >= bytes)
                huge = d.id;
            else
                ordinary = d.id;
        }
        if (huge.isNull() || ordinary.isNull()) {
            std::fprintf(stderr, "the huge message was not captured\n");
            return 1;
        }
        for (int i = 0; i < hugeRuns; ++i) {
            timed(hugeLeaving, window, [&] { store.setSelectedDiagnosticID(ordinary); });
            timed(hugeSelecting, window, [&] { store.setSelectedDiagnosticID(huge); });
        }
    }

    for (const Figures* figures : {&selecting, &filtering, &typing, &visibleList, &hugeSelecting, &hugeLeaving}) {
        if (!figures->milliseconds.empty())
            report(*figures);
    }
    qApp->removeEventFilter(&counter);
    paintCounter = nullptr;
    return 0;
}

RegisterBenchCommand reg("ui",
                         "[DIAGNOSTICS [all|select|filter|type|huge [window|views [HUGE_MESSAGE_BYTES]]]]  (default "
                         "10000 all window 5000000; offscreen unless QT_QPA_PLATFORM is set)",
                         runUiBench);

} // namespace
} // namespace corvane::bench

#endif // CORVANE_BENCH_WITH_UI
