#include "Sidebar.h"

#include "BuildHistorySection.h"
#include "CleanBuildPanel.h"
#include "DiagnosticListView.h"
#include "InstrumentEmptyState.h"
#include "StoreRefresh.h"
#include "SummaryStrip.h"
#include "Theme.h"

#include <QStackedWidget>
#include <QVBoxLayout>

namespace corvane {

Sidebar::Sidebar(BuildStore& store, QWidget* parent)
    : QWidget(parent),
      m_store(store),
      // Which area shows depends on what is visible, not on the selection or
      // the watcher.
      m_refresh(new StoreRefresh(store, *this, [this](const auto&) { refresh(); },
                                 {BuildStore::Field::sessions, BuildStore::Field::activeSessionID,
                                  BuildStore::Field::severityFilter, BuildStore::Field::searchText,
                                  BuildStore::Field::showBuildNoise, BuildStore::Field::warningViewMode,
                                  BuildStore::Field::pinnedDiagnostics, BuildStore::Field::ignoredDiagnostics})),
      m_summary(new SummaryStrip(store, this)),
      m_history(new BuildHistorySection(store, this)),
      m_lower(new QStackedWidget(this)),
      m_waiting(new InstrumentEmptyState(theme::Symbol::scope, QStringLiteral("WATCHING XCODE"),
                                         QStringLiteral("Build a project in Xcode.\n"
                                                        "Corvane will capture the result automatically."),
                                         theme::cyan(), m_lower)),
      m_clean(new CleanBuildPanel(store, m_lower)),
      m_list(new DiagnosticListView(store, m_lower))
{
    setObjectName(QStringLiteral("sidebar"));
    m_lower->setObjectName(QStringLiteral("sidebarLowerArea"));
    m_waiting->setObjectName(QStringLiteral("sidebarEmptyState"));
    m_clean->setObjectName(QStringLiteral("cleanBuildPanel"));
    m_list->setObjectName(QStringLiteral("diagnosticList"));
    setAutoFillBackground(true);
    QPalette p = palette();
    p.setColor(QPalette::Window, theme::panelBackground());
    setPalette(p);

    m_lower->addWidget(m_waiting);
    m_lower->addWidget(m_clean);
    m_lower->addWidget(m_list);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_summary);
    layout->addWidget(m_history);
    layout->addWidget(m_lower, 1);

    refresh();
}

void Sidebar::refresh()
{
    if (!m_store.activeSession())
        m_lower->setCurrentWidget(m_waiting);
    else if (!m_store.hasVisibleDiagnostics())
        m_lower->setCurrentWidget(m_clean);
    else
        m_lower->setCurrentWidget(m_list);
}

} // namespace corvane
