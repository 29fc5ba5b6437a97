#include "StoreRefresh.h"

#include <QEvent>
#include <QMetaEnum>
#include <QMetaObject>
#include <QWidget>

#include <algorithm>

namespace corvane {

StoreRefresh::StoreRefresh(BuildStore& store, QWidget& view, Callback callback, Fields watched)
    : QObject(&view), m_view(view), m_callback(std::move(callback))
{
    connect(&store, &BuildStore::aboutToChange, this, [this, watched = std::move(watched)](BuildStore::Field field) {
        if (!watched.contains(field))
            return;
        m_changed.insert(field);
        schedule();
    });
    view.installEventFilter(this);
}

const StoreRefresh::Fields& StoreRefresh::allFields()
{
    static const Fields all = [] {
        Fields fields;
        const QMetaEnum meta = QMetaEnum::fromType<BuildStore::Field>();
        for (int i = 0; i < meta.keyCount(); ++i)
            fields.insert(BuildStore::Field(meta.value(i)));
        return fields;
    }();
    return all;
}

bool StoreRefresh::touches(const Fields& changed, std::initializer_list<BuildStore::Field> fields)
{
    return std::any_of(fields.begin(), fields.end(), [&](BuildStore::Field field) { return changed.contains(field); });
}

void StoreRefresh::schedule()
{
    if (m_pending)
        return;
    m_pending = true;
    QMetaObject::invokeMethod(this, &StoreRefresh::run, Qt::QueuedConnection);
}

bool StoreRefresh::viewIsHidden() const
{
    // Hidden by its owner, not merely not yet shown: a view built before the
    // window opens still follows the store.
    return m_view.testAttribute(Qt::WA_WState_ExplicitShowHide) && m_view.testAttribute(Qt::WA_WState_Hidden);
}

void StoreRefresh::run()
{
    m_pending = false;
    if (m_changed.isEmpty() || viewIsHidden())
        return;
    // Taken before the call: the callback may change the store again, which
    // announces new fields for the next round.
    const Fields changed = std::exchange(m_changed, {});
    m_callback(changed);
}

bool StoreRefresh::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == &m_view && event->type() == QEvent::Show && !m_changed.isEmpty())
        run();
    return QObject::eventFilter(watched, event);
}

} // namespace corvane
