#pragma once

#include "BuildStore.h"

#include <QWidget>

class QStackedWidget;

namespace corvane {

class BuildHistorySection;
class CleanBuildPanel;
class DiagnosticListView;
class InstrumentEmptyState;
class StoreRefresh;
class SummaryStrip;

// The left column: the active build's summary, the build history and, below
// them, the diagnostic list, the clean-build panel or the waiting state.
class Sidebar : public QWidget {
    Q_OBJECT

public:
    explicit Sidebar(BuildStore& store, QWidget* parent = nullptr);

    BuildHistorySection& history() const { return *m_history; }
    DiagnosticListView& diagnosticList() const { return *m_list; }

private:
    void refresh();

    BuildStore& m_store;
    StoreRefresh* m_refresh;
    SummaryStrip* m_summary;
    BuildHistorySection* m_history;
    QStackedWidget* m_lower;
    InstrumentEmptyState* m_waiting;
    CleanBuildPanel* m_clean;
    DiagnosticListView* m_list;
};

} // namespace corvane
