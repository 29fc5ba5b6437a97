#include "CorvaneApp.h"
#include "Theme.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

namespace {

void nameApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("Corvane"));
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVANE_VERSION));
}

// The options are read before any window system is touched, so --help and
// --version also work without a display.
QStringList logsFromCommandLine(int argc, char* argv[])
{
    QCoreApplication probe(argc, argv);
    nameApplication();
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Shows the useful part of every Xcode build."));
    options.addHelpOption();
    options.addVersionOption();
    options.addPositionalArgument(QStringLiteral("log"),
                                  QStringLiteral("A plain-text build log to import at start."),
                                  QStringLiteral("[log]"));
    options.process(probe);
    return options.positionalArguments();
}

} // namespace

int main(int argc, char* argv[])
{
    const QStringList logs = logsFromCommandLine(argc, argv);

    // The window has one dark look; the desktop's fonts and colours must not
    // leak into it.
    QGuiApplication::setDesktopSettingsAware(false);
    QApplication app(argc, argv);
    nameApplication();
    QGuiApplication::setDesktopFileName(QStringLiteral("org.corvane.Corvane"));
    corvane::theme::applyTheme(app);

    corvane::CorvaneApp corvane;
    corvane.openWindow();

    // After the window is up, so an unreadable file's alert has a window to sit on.
    if (!logs.isEmpty()) {
        QTimer::singleShot(0, &corvane, [&corvane, log = logs.first()] {
            corvane.store().importLogFile(log);
        });
    }
    return app.exec();
}
