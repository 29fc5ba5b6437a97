// corvane-screenshots OUTPUT_DIR
//
// Opens the real window on a store in a throw-away home folder, brings it
// into a few typical states through the store's own operations and saves
// each as a PNG. Run under a display server (make screenshots uses Xvfb).

#include "BuildHistorySection.h"
#include "BuildStore.h"
#include "ContentView.h"
#include "CorvaneApp.h"
#include "HeaderBar.h"
#include "DiagnosticDetailView.h"
#include "Sidebar.h"
#include "Theme.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QMenu>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <QStandardPaths>
#include <QThread>

#include <cstdio>

using namespace corvane;

namespace {

// Lets queued refreshes, layouts and animations settle.
void settle(int milliseconds = 400)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds) {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(10);
    }
}

bool save(QWidget& window, const QDir& folder, const QString& name)
{
    settle();
    const QString path = folder.filePath(name);
    if (!window.grab().save(path)) {
        std::fprintf(stderr, "corvane-screenshots: could not write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

QString logPath(const QString& project, int build)
{
    return QDir::homePath() + QStringLiteral("/Library/Developer/Xcode/DerivedData/") + project
        + QStringLiteral("-bqyzkcmhsxvofdgwtlrnjpaeui/Logs/Build/") + QString::number(build)
        + QStringLiteral(".xcactivitylog");
}

QByteArray lines(const QStringList& list)
{
    return list.join(QLatin1Char('\n')).toUtf8();
}

const QString root = QStringLiteral("/Users/ustra/Developer/ExampleApp/");

QByteArray firstBuild()
{
    return lines({
        root + QStringLiteral("Feed/FeedView.swift:48:17: error: cannot find 'widgetTitle' in scope"),
        root + QStringLiteral("Feed/FeedView.swift:91:9: warning: initialization of immutable value 'spacing' "
                              "was never used; consider replacing with assignment to '_' or removing it"),
        root + QStringLiteral("Audio/AudioEngine.swift:112:9: warning: variable 'level' was never mutated; "
                              "consider changing to 'let' constant"),
        root + QStringLiteral("Rendering/Renderer.swift:76:5: warning: result of call to 'drawFrame()' is unused"),
        QStringLiteral("note: Target dependency graph (3 targets)"),
    });
}

QByteArray secondBuild()
{
    return lines({
        root + QStringLiteral("Feed/FeedView.swift:91:9: warning: initialization of immutable value 'spacing' "
                              "was never used; consider replacing with assignment to '_' or removing it"),
        root + QStringLiteral("Audio/AudioEngine.swift:112:9: warning: variable 'level' was never mutated; "
                              "consider changing to 'let' constant"),
        root + QStringLiteral("Settings/SettingsStore.swift:33:22: error: value of type 'UserDefaults' has no "
                              "member 'stringArrayValue'"),
        root + QStringLiteral("Settings/SettingsStore.swift:58:14: warning: 'synchronize()' is deprecated: this "
                              "method is unnecessary and will be deprecated in a future release"),
        root + QStringLiteral("Settings/SettingsStore.swift:33:22: note: did you mean 'stringArray'?"),
        QStringLiteral("note: Target dependency graph (3 targets)"),
    });
}

QByteArray warningsOnly(int count)
{
    QStringList list;
    for (int i = 0; i < count; ++i)
        list << root + QStringLiteral("Widgets/Widget%1.swift:%2:5: warning: 'foregroundColor' is deprecated: "
                                      "renamed to 'foregroundStyle'")
                           .arg(i + 1)
                           .arg(10 + i);
    return lines(list);
}

std::optional<BuildDiagnostic> firstWithMessage(const BuildStore& store, const QString& fragment)
{
    for (const BuildDiagnostic& d : store.visibleDiagnostics()) {
        if (d.message.contains(fragment))
            return d;
    }
    return std::nullopt;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: corvane-screenshots OUTPUT_DIR\n");
        return 2;
    }
    // A fresh home, so the pictures never show (or change) the user's history.
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path() + QStringLiteral("/data")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + QStringLiteral("/config")));
#if defined(Q_OS_MACOS)
    // macOS ignores the XDG variables; in test mode the data folder is under
    // $HOME instead of the user's Application Support.
    QStandardPaths::setTestModeEnabled(true);
#endif

    QGuiApplication::setDesktopSettingsAware(false);
    QApplication app(argc, argv);
    theme::applyTheme(app);
    const QDir out(QString::fromLocal8Bit(argv[1]));
    if (!QDir().mkpath(out.path()))
        return 1;

    CorvaneApp corvane;
    BuildStore& store = corvane.store();
    ContentView& window = corvane.openWindow();
    window.resize(1280, 800);
    settle(800); // the watcher's first state and the first paint

    bool ok = save(window, out, QStringLiteral("01-empty-history.png"));

    store.loadSampleDiagnostics();
    ok &= save(window, out, QStringLiteral("02-sample-loaded.png"));

    store.captureBuild(firstBuild(), logPath(QStringLiteral("ExampleApp"), 1));
    store.captureBuild(secondBuild(), logPath(QStringLiteral("ExampleApp"), 2));
    ok &= save(window, out, QStringLiteral("03-new-and-fixed.png"));

    if (auto warning = firstWithMessage(store, QStringLiteral("was never mutated"))) {
        store.togglePin(*warning);
        store.setSelectedDiagnosticID(warning->id);
    }
    ok &= save(window, out, QStringLiteral("04-warning-pinned.png"));

    store.captureBuild(QByteArray("Build succeeded\n"), logPath(QStringLiteral("ExampleApp"), 3));
    ok &= save(window, out, QStringLiteral("05-clean-build.png"));

    store.captureBuild(warningsOnly(2), logPath(QStringLiteral("WeatherKit"), 1));
    store.captureBuild(warningsOnly(1), logPath(QStringLiteral("WeatherKit"), 2));
    store.captureBuild(firstBuild(), logPath(QStringLiteral("ExampleApp"), 4));
    // A sidebar dragged wide enough for a whole page of cards.
    window.resize(1440, 800);
    if (auto* split = window.findChild<QSplitter*>(QStringLiteral("splitView")))
        split->setSizes({760, 680});
    settle();
    if (auto* older = window.findChild<QAbstractButton*>(QStringLiteral("olderBuildsButton")))
        older->click();
    ok &= save(window, out, QStringLiteral("06-history-pager.png"));

    // A menu is a window of its own: the picture is taken from the screen.
    if (auto* options = window.findChild<QAbstractButton*>(QStringLiteral("optionsButton"))) {
        window.resize(1280, 800);
        store.setShowBuildNoise(true);
        settle();
        auto* menu = window.findChild<QMenu*>(QStringLiteral("optionsMenu"));
        menu->popup(options->mapToGlobal(QPoint(options->width() - menu->sizeHint().width(), options->height() + 4)));
        settle();
        const QRect area(window.mapToGlobal(QPoint(0, 0)), window.size());
        const QString path = out.filePath(QStringLiteral("07-options-menu.png"));
        const bool saved = window.screen()->grabWindow(0, area.x(), area.y(), area.width(), area.height()).save(path);
        menu->hide();
        if (saved)
            std::printf("%s\n", qPrintable(path));
        ok &= saved;
    }

    // A message of one word a million letters long: the cards show its head,
    // wrapped, and end in a note of how much is left out.
    const QString hugeError = root + QStringLiteral("Generated/Assets.swift:1:2: error: ") + QString(1'000'000, u'x');
    const QString error = root + QStringLiteral("Feed/FeedView.swift:48:17: error: cannot find 'widgetTitle' in scope");
    store.captureBuild(lines({hugeError, error}), logPath(QStringLiteral("ExampleApp"), 5));
    if (auto huge = firstWithMessage(store, QStringLiteral("xxxxxxxx")))
        store.setSelectedDiagnosticID(huge->id);
    settle();
    if (auto* detail = window.findChild<DiagnosticDetailView*>()) {
        QScrollBar* bar = detail->findChild<QScrollArea*>()->verticalScrollBar();
        bar->setValue(bar->maximum());
    }
    ok &= save(window, out, QStringLiteral("08-long-message.png"));

    // The header as the title bar, with the window buttons at its end.
    {
        const QString path = out.filePath(QStringLiteral("09-title-bar.png"));
        const bool saved = window.grab(QRect(0, 0, window.width(), window.header().height())).save(path);
        if (saved)
            std::printf("%s\n", qPrintable(path));
        ok &= saved;
    }

    return ok ? 0 : 1;
}
