#include "CountChip.h"

#include "Theme.h"

#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

namespace corvane {

CountChip::CountChip(Style style, QWidget* parent) : QWidget(parent), m_style(std::move(style))
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    updateText();
}

void CountChip::setCount(qsizetype count)
{
    if (count == m_count)
        return;
    m_count = count;
    updateText();
}

void CountChip::updateText()
{
    setAccessibleName(m_style.caption.isEmpty() ? text() : text() + QLatin1Char(' ') + m_style.caption);
    updateGeometry();
    update();
}

QString CountChip::text() const
{
    return QString::number(m_count);
}

QColor CountChip::foreground() const
{
    return theme::counterColor(m_count, m_style.color);
}

QFont CountChip::numberFont() const
{
    QFont f = m_style.font;
    f.setWeight(QFont::Bold);
    return f;
}

QSize CountChip::sizeHint() const
{
    qreal width = m_style.horizontalPadding * 2 + m_style.symbolSize + m_style.spacing
        + QFontMetricsF(numberFont()).horizontalAdvance(text());
    if (!m_style.caption.isEmpty())
        width += m_style.spacing + QFontMetricsF(m_style.font).horizontalAdvance(m_style.caption);
    const int height = qMax(m_style.height, int(std::ceil(QFontMetricsF(m_style.font).height())));
    return QSize(int(std::ceil(width)), height);
}

void CountChip::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const QRectF bounds = rect();
    if (m_style.capsule)
        theme::paintRoundedPanel(painter, bounds, bounds.height() / 2.0, theme::elevatedPanel(), theme::edge());

    const QColor colour = foreground();
    qreal x = m_style.horizontalPadding;
    const qreal midY = bounds.center().y();
    theme::drawSymbol(painter, m_style.symbol, colour,
                      QRectF(x, midY - m_style.symbolSize / 2.0, m_style.symbolSize, m_style.symbolSize));
    x += m_style.symbolSize + m_style.spacing;

    const QFont number = numberFont();
    painter.setFont(number);
    painter.setPen(colour);
    const qreal numberWidth = QFontMetricsF(number).horizontalAdvance(text());
    painter.drawText(QRectF(x, 0, numberWidth + 1, bounds.height()), Qt::AlignLeft | Qt::AlignVCenter, text());
    x += numberWidth;

    if (!m_style.caption.isEmpty()) {
        x += m_style.spacing;
        painter.setFont(m_style.font);
        painter.setPen(theme::secondaryText());
        painter.drawText(QRectF(x, 0, bounds.width() - x, bounds.height()), Qt::AlignLeft | Qt::AlignVCenter,
                         m_style.caption);
    }
}

} // namespace corvane
