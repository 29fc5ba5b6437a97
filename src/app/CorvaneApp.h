#pragma once

#include "BuildStore.h"
#include "WidgetsDesktopPlatform.h"

#include <QObject>

#include <memory>
#include <vector>

namespace corvane {

class ContentView;

// The application: one store for the life of the process and the windows
// that show it. The watcher starts when a window's content is first shown.
class CorvaneApp : public QObject {
    Q_OBJECT

public:
    static constexpr int minimumWidth = 1080;
    static constexpr int minimumHeight = 680;

    CorvaneApp();
    ~CorvaneApp() override;

    BuildStore& store() { return m_store; }
    // Every window shows the same store.
    ContentView& openWindow();
    // Shows every window on top and un-minimised, as asked by a later start.
    void bringToFront();

protected:
    // Installed on the application: on macOS a file opened from the Finder
    // ("Open With", a drop on the Dock icon) arrives as an event, not as an
    // argument, and is imported like a log given on the command line.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    WidgetsDesktopPlatform m_platform;
    BuildStore m_store;
    std::vector<std::unique_ptr<ContentView>> m_windows;
};

} // namespace corvane
