#include "DiagnosticListView.h"

#include "DiagnosticListModel.h"
#include "DiagnosticRowDelegate.h"
#include "StoreRefresh.h"
#include "Theme.h"

#include <QListView>
#include <QResizeEvent>
#include <QVBoxLayout>

namespace corvane {

namespace {

// A list whose keyboard cursor moves only between diagnostic rows, passing
// over the section headers, and whose rows are re-measured when its width
// changes (row heights follow how the messages wrap).
class SectionedListView : public QListView {
public:
    SectionedListView(DiagnosticListModel& model, DiagnosticRowDelegate& delegate, QWidget* parent)
        : QListView(parent)
        , m_model(model)
        , m_delegate(delegate)
    {
    }

protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override
    {
        const int rows = m_model.rowCount();
        if (rows == 0)
            return {};
        const QModelIndex current = currentIndex();
        switch (action) {
        case MoveUp:
        case MovePrevious:
            return step(current, -1);
        case MoveDown:
        case MoveNext:
            return step(current, +1);
        case MoveHome:
            return nearestDiagnostic(0, +1);
        case MoveEnd:
            return nearestDiagnostic(rows - 1, -1);
        case MovePageUp:
        case MovePageDown: {
            const QModelIndex target = QListView::moveCursor(action, modifiers);
            const int direction = action == MovePageUp ? -1 : +1;
            const int row = target.isValid() ? target.row() : (direction < 0 ? 0 : rows - 1);
            const QModelIndex found = nearestDiagnostic(row, direction);
            return found.isValid() ? found : nearestDiagnostic(row, -direction);
        }
        case MoveLeft:
        case MoveRight:
            break;
        }
        return current;
    }

    void resizeEvent(QResizeEvent* event) override
    {
        const int width = viewport()->width();
        if (width != m_measuredWidth) {
            m_measuredWidth = width;
            m_delegate.setAvailableWidth(width);
            scheduleDelayedItemsLayout();
        }
        QListView::resizeEvent(event);
    }

private:
    QModelIndex step(const QModelIndex& current, int direction) const
    {
        if (!current.isValid() || !m_model.isDiagnosticRow(current.row()))
            return nearestDiagnostic(direction > 0 ? 0 : m_model.rowCount() - 1, direction);
        const QModelIndex next = nearestDiagnostic(current.row() + direction, direction);
        // At either end the cursor stays where it is.
        return next.isValid() ? next : current;
    }

    QModelIndex nearestDiagnostic(int row, int direction) const
    {
        for (; row >= 0 && row < m_model.rowCount(); row += direction) {
            if (m_model.isDiagnosticRow(row))
                return m_model.index(row);
        }
        return {};
    }

    DiagnosticListModel& m_model;
    DiagnosticRowDelegate& m_delegate;
    int m_measuredWidth = -1;
};

} // namespace

DiagnosticListView::DiagnosticListView(BuildStore& store, QWidget* parent)
    : QWidget(parent)
    , m_store(store)
    , m_model(new DiagnosticListModel(this))
    , m_delegate(new DiagnosticRowDelegate(this))
{
    m_list = new SectionedListView(*m_model, *m_delegate, this);
    m_list->setModel(m_model);
    m_list->setItemDelegate(m_delegate);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setUniformItemSizes(false);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setAccessibleName(QStringLiteral("Diagnostics"));
    m_list->setMouseTracking(true);
    m_list->viewport()->setAttribute(Qt::WA_Hover);
    QPalette palette = m_list->palette();
    palette.setColor(QPalette::Base, theme::panelBackground());
    palette.setColor(QPalette::Window, theme::panelBackground());
    m_list->setPalette(palette);
    m_list->viewport()->setAutoFillBackground(true);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_list);
    setFocusProxy(m_list);

    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &DiagnosticListView::userSelectionChanged);
    new StoreRefresh(store, *this, [this](const auto& changed) { refresh(changed); });
    refresh(StoreRefresh::allFields());
}

DiagnosticListView::~DiagnosticListView() = default;

QListView* DiagnosticListView::listView() const
{
    return m_list;
}

DiagnosticListModel* DiagnosticListView::model() const
{
    return m_model;
}

void DiagnosticListView::refresh(const QSet<BuildStore::Field>& changed)
{
    using Field = BuildStore::Field;
    // Rows are rebuilt on anything but a new selection or the watcher's news,
    // and the selection is shown again on the new rows.
    const QSet<Field> selectionOrWatcher{Field::selectedDiagnosticID, Field::captureState, Field::lastWatcherMessage};
    if (!selectionOrWatcher.contains(changed)) {
        m_applyingStoreSelection = true;
        m_model->rebuild(m_store);
        m_applyingStoreSelection = false;
        showStoreSelection();
    } else if (changed.contains(Field::selectedDiagnosticID)) {
        showStoreSelection();
    }
}

void DiagnosticListView::showStoreSelection()
{
    QItemSelectionModel* selection = m_list->selectionModel();
    const std::optional<QUuid> id = m_store.selectedDiagnosticID();
    const int row = id ? m_model->rowOf(*id) : -1;
    m_applyingStoreSelection = true;
    if (row >= 0) {
        const QModelIndex index = m_model->index(row);
        if (selection->currentIndex() != index || !selection->isSelected(index))
            selection->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
        m_list->scrollTo(index);
    } else {
        selection->clear();
    }
    m_applyingStoreSelection = false;
}

void DiagnosticListView::userSelectionChanged()
{
    if (m_applyingStoreSelection)
        return;
    std::optional<QUuid> id;
    for (const QModelIndex& index : m_list->selectionModel()->selectedIndexes()) {
        if (const BuildDiagnostic* d = m_model->diagnosticAt(index.row())) {
            id = d->id;
            break;
        }
    }
    if (id != m_store.selectedDiagnosticID())
        m_store.setSelectedDiagnosticID(id);
}

} // namespace corvane
