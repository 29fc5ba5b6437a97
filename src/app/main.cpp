#include "ActivityLogReader.h"
#include "CorvaneApp.h"
#include "SingleInstance.h"
#include "Theme.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <csignal>
#include <cstdio>
#include <memory>

#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

// Long enough for a running window that is busy capturing a build.
constexpr std::chrono::milliseconds handOverTimeout = 15s;

void nameApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("Corvane"));
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVANE_VERSION));
}

// Ends the process for --help and --version. The logs' paths are made
// absolute here because a running instance may be handed them from another folder.
QStringList logsFromCommandLine(const QCoreApplication& application)
{
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Shows the useful part of every Xcode build."));
    options.addHelpOption();
    options.addVersionOption();
    options.addPositionalArgument(QStringLiteral("log"),
                                  QStringLiteral("Plain-text build logs to import at start, each as a build."),
                                  QStringLiteral("[log...]"));
    options.process(application);
    QStringList logs;
    for (const QString& argument : options.positionalArguments())
        logs.append(QFileInfo(argument).absoluteFilePath());
    return logs;
}

int signalPipe[2] = {-1, -1};

void forwardSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

// SIGTERM, SIGINT and SIGHUP end the program the way closing its window does:
// the event loop returns and everything below main's exec() runs, so the
// socket file goes and reads under way are stopped with their gzip.
void quitOnTerminationSignals(QCoreApplication& application)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &application);
    QObject::connect(notifier, &QSocketNotifier::activated, &application, [notifier] {
        notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(signal, &action, nullptr);
}

} // namespace

int main(int argc, char* argv[])
{
    std::unique_ptr<corvane::SingleInstance> instance;
    QStringList logs;
    // The command line is read, and a running instance asked, before any
    // window system is touched: --help, --version and a start that hands over
    // to the running window need no display.
    {
        QCoreApplication probe(argc, argv);
        nameApplication();
        logs = logsFromCommandLine(probe);

        const QString dataFolder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        instance = std::make_unique<corvane::SingleInstance>(corvane::SingleInstance::socketPathFor(dataFolder),
                                                             corvane::SingleInstance::lockPathFor(dataFolder));
        // Left in place: should this start be the first, the window system
        // plugin uses it for its own window.
        const QString activationToken = qEnvironmentVariable("XDG_ACTIVATION_TOKEN");
        switch (instance->claim(logs, activationToken, handOverTimeout)) {
        case corvane::SingleInstance::Claim::handedOver:
            return 0;
        case corvane::SingleInstance::Claim::noAnswer:
            std::fputs("corvane: Corvane is already running but does not answer.\n", stderr);
            return 1;
        case corvane::SingleInstance::Claim::first:
            break;
        }
    }

    // The window has one dark look; the desktop's fonts and colours must not
    // leak into it.
    QGuiApplication::setDesktopSettingsAware(false);
    QApplication app(argc, argv);
    nameApplication();
    QGuiApplication::setDesktopFileName(QStringLiteral("org.corvane.Corvane"));
    corvane::theme::applyTheme(app);
    quitOnTerminationSignals(app);

    // Before the store loads its history, so a start waiting on the lock is let
    // in early; its request is answered once the event loop runs.
    instance->listen();

    corvane::CorvaneApp corvane;
    corvane.openWindow();
    app.installEventFilter(&corvane);

    // Queued: a later start has its answer and ends before the import runs,
    // and an unreadable file's alert does not hold it up.
    QObject::connect(
        instance.get(), &corvane::SingleInstance::activationRequested, &corvane,
        [&corvane](const QStringList& handedLogs, const QString& activationToken) {
            // The Wayland plugin activates a window with the token it finds
            // here; it must not stay behind for the next request or for the
            // programs this one starts.
            if (!activationToken.isEmpty())
                qputenv("XDG_ACTIVATION_TOKEN", activationToken.toUtf8());
            corvane.bringToFront();
            qunsetenv("XDG_ACTIVATION_TOKEN");
            for (const QString& log : handedLogs)
                corvane.store().importLogFile(log);
        },
        Qt::QueuedConnection);

    // After the window is up, so an unreadable file's alert has a window to sit on.
    if (!logs.isEmpty()) {
        QMetaObject::invokeMethod(
            &corvane,
            [&corvane, logs] {
                for (const QString& log : logs)
                    corvane.store().importLogFile(log);
            },
            Qt::QueuedConnection);
    }
    const int status = app.exec();
    // The socket goes while the event dispatcher it is registered with exists.
    instance.reset();
    // The background pool waits for its jobs when the application object
    // goes; a log being read must not hold the process up until it is done.
    corvane::abandonActivityLogReads();
    return status;
}
