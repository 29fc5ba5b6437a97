// PLACEHOLDER so the project links; replaced by the polling implementation.
#include "XcodeBuildWatcher.h"

#include <QDir>

namespace corvane {

struct XcodeBuildWatcher::Private {
    QString derivedDataPath;
    bool running = false;
};

QString XcodeBuildWatcher::defaultDerivedDataPath()
{
    return QDir::homePath() + QStringLiteral("/Library/Developer/Xcode/DerivedData");
}

XcodeBuildWatcher::XcodeBuildWatcher(QString derivedDataPath, std::chrono::milliseconds, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->derivedDataPath = std::move(derivedDataPath);
}

XcodeBuildWatcher::~XcodeBuildWatcher() = default;

void XcodeBuildWatcher::start()
{
    if (d->running)
        return;
    d->running = true;
    if (onStateChange)
        onStateChange(WatcherState::watching());
}

void XcodeBuildWatcher::stop()
{
    d->running = false;
    if (onStateChange)
        onStateChange(WatcherState::stopped());
}

bool XcodeBuildWatcher::isRunning() const { return d->running; }
QString XcodeBuildWatcher::derivedDataPath() const { return d->derivedDataPath; }
QString XcodeBuildWatcher::projectNameForLog(const QString&) { return QStringLiteral("Xcode"); }

} // namespace corvane
