#include "LogoTile.h"

#include "Theme.h"

#include <QLinearGradient>
#include <QPainter>

namespace corvane {

LogoTile::LogoTile(QWidget* parent) : QWidget(parent)
{
    setFixedSize(42, 42);
}

void LogoTile::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds = rect();
    QLinearGradient gradient(bounds.topLeft(), bounds.bottomRight());
    gradient.setColorAt(0.0, theme::withOpacity(theme::cyan(), 0.18));
    gradient.setColorAt(1.0, theme::withOpacity(theme::blue(), 0.08));
    const QRectF inner = bounds.adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(QPen(theme::withOpacity(theme::cyan(), 0.28), 1.0));
    painter.setBrush(gradient);
    painter.drawRoundedRect(inner, 10, 10);
    theme::drawSymbol(painter, theme::Symbol::viewfinder, theme::cyan(),
                      QRectF(bounds.center().x() - 10, bounds.center().y() - 10, 20, 20));
}

} // namespace corvane
