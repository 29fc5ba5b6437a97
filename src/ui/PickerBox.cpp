#include "PickerBox.h"

#include "AccessibleInterfaces.h"
#include "Theme.h"

#include <QPainter>

namespace corvane {

PickerBox::PickerBox(int width, const QString& accessibleName, QWidget* parent) : QComboBox(parent)
{
    // Before the name below is announced, which makes the interface.
    installAccessibleInterfaces();
    setFixedSize(width, 30);
    setAccessibleName(accessibleName);
    setFont(theme::font(12));
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
}

void PickerBox::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const QRectF bounds = rect();
    QColor fill = theme::elevatedPanel();
    if (underMouse())
        fill = fill.lighter(118);
    theme::paintRoundedPanel(painter, bounds, 8, fill,
                             m_keyboardFocus->showsRing() ? theme::withOpacity(theme::cyan(), 0.6) : theme::edge());

    const qreal chevron = 9;
    const QRectF textRect = bounds.adjusted(11, 0, -(11 + chevron + 6), 0);
    painter.setPen(theme::primaryText());
    painter.setFont(font());
    painter.drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter,
                     fontMetrics().elidedText(currentText(), Qt::ElideRight, int(textRect.width())));
    theme::drawSymbol(painter, theme::Symbol::chevronUpChevronDown, theme::secondaryText(),
                      QRectF(bounds.right() - 11 - chevron, bounds.center().y() - chevron / 2, chevron, chevron));
}

} // namespace corvane
