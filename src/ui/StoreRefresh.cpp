#include "StoreRefresh.h"

#include <QMetaObject>

namespace corvane {

StoreRefresh::StoreRefresh(BuildStore& store, Callback callback, QObject* parent)
    : QObject(parent), m_callback(std::move(callback))
{
    connect(&store, &BuildStore::aboutToChange, this, [this](BuildStore::Field field) {
        m_changed.insert(field);
        schedule();
    });
}

void StoreRefresh::schedule()
{
    if (m_pending)
        return;
    m_pending = true;
    QMetaObject::invokeMethod(this, &StoreRefresh::run, Qt::QueuedConnection);
}

void StoreRefresh::run()
{
    m_pending = false;
    // Taken before the call: the callback may change the store again, which
    // announces new fields for the next round.
    const QSet<BuildStore::Field> changed = std::exchange(m_changed, {});
    m_callback(changed);
}

} // namespace corvane
