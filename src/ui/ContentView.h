#pragma once

#include "BuildStore.h"

#include <QWidget>

class QSplitter;
class QStackedWidget;

namespace corvane {

class DesktopPlatform;
class DiagnosticDetailView;
class HeaderBar;
class InstrumentEmptyState;
class Sidebar;
class StoreRefresh;

// The whole content of the window: header bar, hairline, and the split view
// of sidebar and detail column. It keeps no state of the store's; it shows
// what the store holds and reacts to a few of its changes.
class ContentView : public QWidget {
    Q_OBJECT

public:
    ContentView(BuildStore& store, DesktopPlatform& platform, QWidget* parent = nullptr);

    HeaderBar& header() const { return *m_header; }
    Sidebar& sidebar() const { return *m_sidebar; }

Q_SIGNALS:
    // The first time the content is shown.
    void firstShown();

protected:
    void showEvent(QShowEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    BuildStore& m_store;
    StoreRefresh* m_refresh;
    HeaderBar* m_header;
    QSplitter* m_split;
    Sidebar* m_sidebar;
    QStackedWidget* m_detail;
    DiagnosticDetailView* m_detailView;
    InstrumentEmptyState* m_detailEmpty;
    bool m_shown = false;
};

} // namespace corvane
