#pragma once

#include "BuildStore.h"

#include <QWidget>

class QItemSelection;
class QListView;

namespace corvane {

class DiagnosticListModel;
class DiagnosticRowDelegate;

// The active build's diagnostics: the fixed section, then one section per
// file. Its single selection is bound both ways to the store's selected
// diagnostic: a click or an arrow key writes it, and a change made by the
// store moves the highlight and scrolls to it.
class DiagnosticListView : public QWidget {
    Q_OBJECT

public:
    explicit DiagnosticListView(BuildStore& store, QWidget* parent = nullptr);
    ~DiagnosticListView() override;

    // The list widget itself, for keyboard focus and for tests.
    QListView* listView() const;
    DiagnosticListModel* model() const;

private:
    void refresh(const QSet<BuildStore::Field>& changed);
    void showStoreSelection();
    void userSelectionChanged();

    BuildStore& m_store;
    QListView* m_list;
    DiagnosticListModel* m_model;
    DiagnosticRowDelegate* m_delegate;
    // Set while the view itself moves the selection, so that the change is
    // not written back to the store.
    bool m_applyingStoreSelection = false;
};

} // namespace corvane
