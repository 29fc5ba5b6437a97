#include "ElidedLabel.h"

#include <QPainter>

namespace corvane {

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent)
{
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

QSize ElidedLabel::minimumSizeHint() const
{
    return QSize(fontMetrics().horizontalAdvance(QChar(0x2026)) * 3, fontMetrics().height());
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    painter.setFont(font());
    const QRect area = contentsRect();
    painter.drawText(area, int(alignment()), fontMetrics().elidedText(text(), Qt::ElideRight, area.width()));
}

} // namespace corvane
