#include "ContentView.h"

#include "AccessibleInterfaces.h"
#include "BuildHistorySection.h"
#include "DiagnosticDetailView.h"
#include "DiagnosticListView.h"
#include "HeaderBar.h"
#include "InstrumentEmptyState.h"
#include "Sidebar.h"
#include "StoreRefresh.h"
#include "Theme.h"

#include <QPainter>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace corvane {

namespace {

constexpr int sidebarMinimumWidth = 410;
constexpr int sidebarIdealWidth = 470;

class Hairline : public QWidget {
public:
    explicit Hairline(QWidget* parent) : QWidget(parent) { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), theme::edge());
    }
};

} // namespace

ContentView::ContentView(BuildStore& store, DesktopPlatform& platform, QWidget* parent)
    : QWidget(parent),
      m_store(store),
      m_refresh(new StoreRefresh(store, *this, [this](const auto&) { refresh(); },
                                 {BuildStore::Field::selectedDiagnosticID, BuildStore::Field::sessions,
                                  BuildStore::Field::activeSessionID, BuildStore::Field::showBuildNoise})),
      m_header(new HeaderBar(store, this)),
      m_split(new QSplitter(Qt::Horizontal, this)),
      m_sidebar(new Sidebar(store, m_split)),
      m_detail(new QStackedWidget(m_split)),
      m_detailView(new DiagnosticDetailView(store, platform, theme::cardColor(), theme::white(0.075), m_detail)),
      m_detailEmpty(new InstrumentEmptyState(theme::Symbol::viewfinder, QStringLiteral("SELECT A DIAGNOSTIC"),
                                             QStringLiteral("Corvane will show the useful part here."), theme::cyan(),
                                             m_detail))
{
    installAccessibleInterfaces();
    setObjectName(QStringLiteral("contentView"));
    m_split->setObjectName(QStringLiteral("splitView"));
    m_detail->setObjectName(QStringLiteral("detailColumn"));
    m_detailView->setObjectName(QStringLiteral("diagnosticDetail"));
    m_detailEmpty->setObjectName(QStringLiteral("detailEmptyState"));

    m_detail->addWidget(m_detailView);
    m_detail->addWidget(m_detailEmpty);
    m_detail->setAutoFillBackground(true);
    QPalette detailPalette = m_detail->palette();
    detailPalette.setColor(QPalette::Window, theme::detailBackground());
    m_detail->setPalette(detailPalette);

    m_sidebar->setMinimumWidth(sidebarMinimumWidth);
    m_split->setChildrenCollapsible(false);
    m_split->setHandleWidth(1);
    m_split->setStretchFactor(0, 0);
    m_split->setStretchFactor(1, 1);
    m_split->setSizes({sidebarIdealWidth, 10000});
    QPalette splitPalette = m_split->palette();
    splitPalette.setColor(QPalette::Window, theme::edge());
    m_split->setPalette(splitPalette);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_header);
    layout->addWidget(new Hairline(this));
    layout->addWidget(m_split, 1);

    auto* find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, m_header, &HeaderBar::focusSearchField);

    refresh();
}

void ContentView::refresh()
{
    // A build-system note stays out of the detail column while notes are
    // hidden, even if it is still the selection.
    const std::optional<BuildDiagnostic> selected = m_store.selectedDiagnostic();
    if (selected && (m_store.showBuildNoise() || !selected->isBuildNoise())) {
        // Only a different diagnostic resets the detail view (and where the
        // user had scrolled it to); other store changes refresh it themselves.
        if (m_detail->currentWidget() != m_detailView || !(m_detailView->diagnostic() == *selected))
            m_detailView->setDiagnostic(*selected);
        m_detail->setCurrentWidget(m_detailView);
    } else {
        m_detail->setCurrentWidget(m_detailEmpty);
    }
}

void ContentView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!m_shown) {
        m_shown = true;
        // Keyboard work starts in the diagnostic list, not on the first
        // header button; while the list is not shown the window itself
        // holds focus, so no control looks chosen.
        QWidget& list = m_sidebar->diagnosticList();
        if (list.isVisibleTo(this))
            list.setFocus(Qt::OtherFocusReason);
        else
            setFocus(Qt::OtherFocusReason);
        Q_EMIT firstShown();
    }
}

void ContentView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), theme::panelBackground());
}

} // namespace corvane
