#include "SummaryStrip.h"

#include "CountChip.h"
#include "ElidedLabel.h"
#include "StoreRefresh.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

namespace corvane {

namespace {

CountChip::Style summaryChip(theme::Symbol symbol, const QColor& color)
{
    CountChip::Style style;
    style.symbol = symbol;
    style.color = color;
    style.font = theme::monospaced(11);
    style.symbolSize = 13;
    style.spacing = 5;
    style.height = 20;
    return style;
}

// The vertical divider between the counts and the comparison counts.
class Divider : public QWidget {
public:
    explicit Divider(QWidget* parent) : QWidget(parent) { setFixedSize(1, 16); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), theme::edge());
    }
};

} // namespace

SummaryStrip::SummaryStrip(BuildStore& store, QWidget* parent)
    : QWidget(parent),
      m_store(store),
      m_refresh(new StoreRefresh(store, *this, [this](const auto&) { refresh(); },
                                 {BuildStore::Field::sessions, BuildStore::Field::activeSessionID,
                                  BuildStore::Field::showBuildNoise})),
      m_errors(new CountChip(summaryChip(theme::Symbol::xmarkOctagonFill, theme::red()), this)),
      m_warnings(new CountChip(summaryChip(theme::Symbol::exclamationmarkTriangleFill, theme::orange()), this)),
      m_comparison(new QWidget(this)),
      m_new(new CountChip(summaryChip(theme::Symbol::sparkles, theme::cyan()), m_comparison)),
      m_fixed(new CountChip(summaryChip(theme::Symbol::checkmarkCircleFill, theme::green()), m_comparison)),
      m_source(new QWidget(this)),
      m_sourceName(new ElidedLabel(m_source)),
      m_time(new QLabel(m_source))
{
    setObjectName(QStringLiteral("summaryStrip"));
    m_errors->setObjectName(QStringLiteral("summaryErrors"));
    m_warnings->setObjectName(QStringLiteral("summaryWarnings"));
    m_comparison->setObjectName(QStringLiteral("summaryComparison"));
    m_new->setObjectName(QStringLiteral("summaryNew"));
    m_fixed->setObjectName(QStringLiteral("summaryFixed"));
    m_source->setObjectName(QStringLiteral("summarySource"));
    m_sourceName->setObjectName(QStringLiteral("summarySourceName"));
    m_time->setObjectName(QStringLiteral("summaryTime"));
    m_errors->setAccessibleDescription(QStringLiteral("Errors"));
    m_warnings->setAccessibleDescription(QStringLiteral("Warnings"));
    m_new->setAccessibleDescription(QStringLiteral("New since the last build"));
    m_fixed->setAccessibleDescription(QStringLiteral("Fixed since the last build"));
    setFixedHeight(48);

    auto* comparisonLayout = new QHBoxLayout(m_comparison);
    comparisonLayout->setContentsMargins(0, 0, 0, 0);
    comparisonLayout->setSpacing(10);
    comparisonLayout->addWidget(new Divider(m_comparison));
    comparisonLayout->addWidget(m_new);
    comparisonLayout->addWidget(m_fixed);

    m_sourceName->setFont(theme::monospaced(10, QFont::DemiBold));
    theme::setForeground(*m_sourceName, theme::secondaryText());
    m_sourceName->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_time->setFont(theme::monospaced(9));
    theme::setForeground(*m_time, theme::tertiaryText());
    m_time->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    auto* sourceLayout = new QVBoxLayout(m_source);
    sourceLayout->setContentsMargins(0, 0, 0, 0);
    sourceLayout->setSpacing(2);
    sourceLayout->addStretch(1);
    sourceLayout->addWidget(m_sourceName);
    sourceLayout->addWidget(m_time);
    sourceLayout->addStretch(1);
    // A long source name gives way to the counters rather than widening the
    // sidebar.
    m_source->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_time->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(14, 0, 14, 1);
    layout->setSpacing(10);
    layout->addWidget(m_errors);
    layout->addWidget(m_warnings);
    layout->addWidget(m_comparison);
    layout->addStretch(0);
    layout->addWidget(m_source, 1);

    refresh();
}

void SummaryStrip::refresh()
{
    const std::optional<BuildSession> session = m_store.activeSession();
    m_errors->setCount(session ? session->errorCount() : 0);
    m_warnings->setCount(session ? session->warningCount() : 0);

    const BuildComparison comparison = m_store.activeComparison();
    m_comparison->setVisible(comparison.hasBaseline);
    m_new->setCount(comparison.newDiagnosticIDs.size());
    m_fixed->setCount(m_store.visibleFixedDiagnostics().size());

    m_source->setVisible(session.has_value());
    if (session) {
        m_sourceName->setText(session->sourceName.toUpper());
        m_sourceName->setToolTip(session->sourceName);
        m_time->setText(theme::timeOfDay(session->startedAt.toDateTime()));
    }
}

void SummaryStrip::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), theme::elevatedPanel());
    painter.fillRect(QRect(0, height() - 1, width(), 1), theme::edge());
}

} // namespace corvane
