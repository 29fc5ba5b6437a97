#pragma once

#include "BuildStore.h"

#include <QObject>
#include <QSet>

#include <functional>
#include <initializer_list>

class QWidget;

namespace corvane {

// How a view hears the store. The store announces a change before it makes
// it, and one user action often changes several fields; the view's refresh
// therefore runs once, queued, when the action has finished and the store
// holds the new values, and it gets every field announced since the last
// refresh. A view names the fields it shows; changes of others never reach
// it. While the view is hidden (a page of a stack the window does not show),
// the fields gather and the refresh runs once when it is shown.
class StoreRefresh : public QObject {
    Q_OBJECT

public:
    using Fields = QSet<BuildStore::Field>;
    using Callback = std::function<void(const Fields& changed)>;

    // The view owns the refresh.
    StoreRefresh(BuildStore& store, QWidget& view, Callback callback, Fields watched = allFields());

    // Every field: for a view's first display.
    static const Fields& allFields();
    // Whether any of the fields is among the changed ones.
    static bool touches(const Fields& changed, std::initializer_list<BuildStore::Field> fields);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void schedule();
    void run();
    bool viewIsHidden() const;

    QWidget& m_view;
    Callback m_callback;
    Fields m_changed;
    bool m_pending = false;
};

} // namespace corvane
