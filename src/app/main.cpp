#include "CorvaneApp.h"
#include "Theme.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    // The window has one dark look; the desktop's fonts and colours must not
    // leak into it.
    QGuiApplication::setDesktopSettingsAware(false);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Corvane"));
    QApplication::setOrganizationName(QStringLiteral("Corvane"));
    QGuiApplication::setDesktopFileName(QStringLiteral("org.corvane.Corvane"));
    corvane::theme::applyTheme(app);

    corvane::CorvaneApp corvane;
    corvane.openWindow();
    return app.exec();
}
