#include "CleanBuildPanel.h"

#include "DisplayText.h"
#include "StoreRefresh.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

namespace corvane {

namespace {

// The checkmark inside two concentric rings.
class CleanEmblem : public QWidget {
public:
    explicit CleanEmblem(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(outerDiameter + 2, outerDiameter + 2);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QPointF centre = QRectF(rect()).center();
        const QColor green = theme::green();
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(theme::withOpacity(green, 0.2), 1));
        painter.drawEllipse(centre, outerDiameter / 2.0, outerDiameter / 2.0);
        painter.setPen(QPen(theme::withOpacity(green, 0.08), 10));
        painter.drawEllipse(centre, innerDiameter / 2.0, innerDiameter / 2.0);
        const QPixmap check = theme::symbolPixmap(theme::Symbol::checkmark, green, symbolSize, devicePixelRatioF());
        painter.drawPixmap(QRectF(centre.x() - symbolSize / 2.0, centre.y() - symbolSize / 2.0, symbolSize, symbolSize),
                           check, QRectF(check.rect()));
    }

private:
    static constexpr int outerDiameter = 96;
    static constexpr int innerDiameter = 76;
    static constexpr int symbolSize = 36;
};

// A green rounded box that prefers its full width of 410 and gives way when
// the column is narrower.
class FixedBox : public QWidget {
public:
    explicit FixedBox(QWidget* parent)
        : QWidget(parent)
    {
        setMaximumWidth(maximumBoxWidth);
    }

    QSize sizeHint() const override
    {
        return {maximumBoxWidth, QWidget::sizeHint().height()};
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        theme::paintRoundedPanel(painter, QRectF(rect()), 12, theme::withOpacity(theme::green(), 0.055),
                                 theme::withOpacity(theme::green(), 0.14));
    }

private:
    static constexpr int maximumBoxWidth = 410;
};

// One line of text, cut short with an ellipsis when the box is too narrow.
// text() keeps the whole text.
class OneLineLabel : public QLabel {
public:
    using QLabel::QLabel;

    QSize minimumSizeHint() const override
    {
        return {0, QLabel::minimumSizeHint().height()};
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::WindowText));
        const QRect area = contentsRect();
        painter.drawText(area, Qt::AlignLeft | Qt::AlignVCenter,
                         fontMetrics().elidedText(text(), Qt::ElideRight, area.width()));
    }
};

QLabel* symbolLabel(theme::Symbol symbol, const QColor& color, int size, QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setPixmap(theme::symbolPixmap(symbol, color, size, parent->devicePixelRatioF()));
    label->setFixedSize(size, size);
    return label;
}

} // namespace

CleanBuildPanel::CleanBuildPanel(BuildStore& store, QWidget* parent)
    : QWidget(parent)
    , m_store(store)
{
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(20);
    layout->addStretch(1);
    layout->addWidget(new CleanEmblem(this), 0, Qt::AlignHCenter);

    auto* title = new QLabel(QStringLiteral("CLEAN BUILD"), this);
    title->setFont(theme::monospaced(18, QFont::Bold, 1.0));
    theme::setForeground(*title, theme::primaryText());
    layout->addWidget(title, 0, Qt::AlignHCenter);

    m_message = new QLabel(this);
    m_message->setFont(theme::font(13));
    m_message->setWordWrap(true);
    m_message->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    // A wrapped label placed with an alignment gets only its size hint; a
    // fixed width makes the layout ask for the height of every line.
    m_message->setFixedWidth(360);
    theme::setForeground(*m_message, theme::secondaryText());
    layout->addWidget(m_message, 0, Qt::AlignHCenter);

    m_fixedBox = new FixedBox(this);
    auto* boxLayout = new QVBoxLayout(m_fixedBox);
    boxLayout->setContentsMargins(15, 15, 15, 15);
    boxLayout->setSpacing(9);
    auto* countRow = new QHBoxLayout;
    countRow->setSpacing(6);
    countRow->addWidget(symbolLabel(theme::Symbol::checkmarkCircleFill, theme::green(), 13, m_fixedBox));
    m_fixedCount = new OneLineLabel(m_fixedBox);
    m_fixedCount->setFont(theme::monospaced(11, QFont::Bold));
    theme::setForeground(*m_fixedCount, theme::green());
    countRow->addWidget(m_fixedCount, 1);
    boxLayout->addLayout(countRow);
    for (int i = 0; i < listedFixedLimit; ++i) {
        auto* row = new QWidget(m_fixedBox);
        auto* rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(0, 0, 0, 0);
        rowLayout->setSpacing(8);
        rowLayout->addWidget(symbolLabel(theme::Symbol::checkmark, theme::green(), 10, row));
        auto* message = new OneLineLabel(row);
        message->setFont(theme::font(11));
        theme::setForeground(*message, theme::secondaryText());
        rowLayout->addWidget(message, 1);
        boxLayout->addWidget(row);
        m_fixedRows.append(row);
        m_fixedMessages.append(message);
    }
    layout->addWidget(m_fixedBox, 0, Qt::AlignHCenter);
    layout->addStretch(1);

    // The box deliberately ignores the search and severity filters.
    using Field = BuildStore::Field;
    new StoreRefresh(store, *this, [this](const auto&) { refresh(); },
                     {Field::sessions, Field::activeSessionID, Field::lastWatcherMessage, Field::showBuildNoise});
    refresh();
}

void CleanBuildPanel::refresh()
{
    const QString message =
        m_store.lastWatcherMessage().value_or(QStringLiteral("No matching diagnostics in this build."));
    m_message->setText(displayText::withBreakHints(displayText::bounded(message, displayText::cardLimit)));

    const QList<BuildDiagnostic> fixed =
        m_store.activeComparison().hasBaseline ? m_store.visibleFixedDiagnostics() : QList<BuildDiagnostic>();
    m_fixedBox->setVisible(!fixed.isEmpty());
    m_fixedCount->setText(QString::number(fixed.size()) + QStringLiteral(" FIXED SINCE LAST BUILD"));
    for (int i = 0; i < listedFixedLimit; ++i) {
        const bool listed = i < fixed.size();
        m_fixedRows[i]->setVisible(listed);
        m_fixedMessages[i]->setText(listed ? displayText::bounded(fixed[i].message, displayText::lineLimit)
                                           : QString());
    }
}

} // namespace corvane
