#include "RingEmblem.h"

#include "Theme.h"

#include <QPainter>

#include <cmath>

namespace corvane {

RingEmblem::RingEmblem(Style style, QWidget* parent) : QWidget(parent), m_style(std::move(style))
{
    const int side = int(std::ceil(qMax(m_style.outerDiameter + m_style.outerLineWidth,
                                        m_style.innerDiameter + m_style.innerLineWidth)));
    setFixedSize(side, side);
    setAccessibleName(theme::symbolName(m_style.symbol));
}

void RingEmblem::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF centre = QRectF(rect()).center();
    painter.setBrush(Qt::NoBrush);

    // Strokes are centred on the circle's outline, as the diameters describe.
    painter.setPen(QPen(theme::withOpacity(m_style.accent, m_style.outerOpacity), m_style.outerLineWidth));
    painter.drawEllipse(centre, m_style.outerDiameter / 2.0, m_style.outerDiameter / 2.0);
    painter.setPen(QPen(theme::withOpacity(m_style.accent, m_style.innerOpacity), m_style.innerLineWidth));
    painter.drawEllipse(centre, m_style.innerDiameter / 2.0, m_style.innerDiameter / 2.0);

    const double s = m_style.symbolSize;
    theme::drawSymbol(painter, m_style.symbol, m_style.accent, QRectF(centre.x() - s / 2, centre.y() - s / 2, s, s));
}

} // namespace corvane
