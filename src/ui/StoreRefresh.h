#pragma once

#include "BuildStore.h"

#include <QObject>
#include <QSet>

#include <functional>

namespace corvane {

// Turns the store's change announcements into one redraw after the changes.
// The store announces a change before it makes it, and one user action often
// changes several fields; the refresh therefore runs once, queued, when the
// current action has finished and the store holds the new values.
class StoreRefresh : public QObject {
    Q_OBJECT

public:
    // The callback gets the fields announced since the last refresh.
    using Callback = std::function<void(const QSet<BuildStore::Field>& changed)>;

    StoreRefresh(BuildStore& store, Callback callback, QObject* parent = nullptr);

    // Asks for a refresh without a store change (after view-only changes).
    void schedule();

private:
    void run();

    Callback m_callback;
    QSet<BuildStore::Field> m_changed;
    bool m_pending = false;
};

} // namespace corvane
