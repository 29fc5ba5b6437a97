#include "BuildStore.h"

#include <QApplication>
#include <QLabel>
#include <QTimer>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    corvane::BuildStore store;

    QLabel window(QStringLiteral("Corvane"));
    window.setMinimumSize(1080, 680);
    window.show();

    // Started from the event loop, once the window is up, so the first scan's
    // results have somewhere to go.
    QTimer::singleShot(0, &store, [&store] { store.watcher().start(); });
    return app.exec();
}
