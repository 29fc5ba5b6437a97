#include "ProjectFocusDefaults.h"

#include <QSettings>

namespace corvane {

namespace {

QSettings userDefaults()
{
    return QSettings(QStringLiteral("Corvane"), QStringLiteral("Corvane"));
}

} // namespace

std::optional<QString> ProjectFocusDefaults::load()
{
    const QVariant stored = userDefaults().value(key);
    if (!stored.isValid())
        return std::nullopt;
    return stored.toString();
}

void ProjectFocusDefaults::save(const std::optional<QString>& projectName)
{
    QSettings defaults = userDefaults();
    if (projectName)
        defaults.setValue(key, *projectName);
    else
        defaults.remove(key);
    // Written now: nothing is saved at quit, and a second start reads it.
    defaults.sync();
}

} // namespace corvane
