#include "CorvaneApp.h"

#include "AccessibleInterfaces.h"
#include "ContentView.h"
#include "WindowChrome.h"

#include <QFileOpenEvent>
#include <QMetaObject>

namespace corvane {

CorvaneApp::CorvaneApp() : m_store(&m_platform)
{
    // Before any widget exists, so none is described by the defaults first.
    installAccessibleInterfaces();
}

CorvaneApp::~CorvaneApp() = default;

ContentView& CorvaneApp::openWindow()
{
    auto window = std::make_unique<ContentView>(m_store, m_platform);
    window->setMinimumSize(minimumWidth, minimumHeight);
    window->resize(1280, 800);
    // The header is the title bar; the window has no title text.
    window->setWindowTitle(QString());
    new WindowChrome(*window);
    // Queued, so the window paints before the first scan starts. start() does
    // nothing when the watcher already runs, so a second window never starts
    // a second polling loop.
    connect(window.get(), &ContentView::firstShown, this, [this] {
        QMetaObject::invokeMethod(
            this, [this] { m_store.startWatching(); }, Qt::QueuedConnection);
    });
    window->show();
    m_windows.push_back(std::move(window));
    return *m_windows.back();
}

void CorvaneApp::bringToFront()
{
    for (const std::unique_ptr<ContentView>& window : m_windows) {
        window->setWindowState((window->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
        window->show();
        window->raise();
        window->activateWindow();
    }
}

bool CorvaneApp::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::FileOpen)
        return QObject::eventFilter(watched, event);
    const QString path = static_cast<QFileOpenEvent*>(event)->file();
    if (path.isEmpty())
        return false;
    // Queued, so an unreadable file's alert does not run inside the event's delivery.
    QMetaObject::invokeMethod(
        this,
        [this, path] {
            bringToFront();
            m_store.importLogFile(path);
        },
        Qt::QueuedConnection);
    return true;
}

} // namespace corvane
