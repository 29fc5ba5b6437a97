#include "HeaderMenuButton.h"

#include "AccessibleInterfaces.h"
#include "Theme.h"

#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

namespace corvane {

HeaderMenuButton::HeaderMenuButton(QWidget* parent) : QToolButton(parent)
{
    // Before anything is announced about the button, which makes its interface.
    installAccessibleInterfaces();
    setPopupMode(QToolButton::InstantPopup);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void HeaderMenuButton::setContent(const Content& content)
{
    // The header sets its buttons' content on every store change; only a
    // real change may cost the header a new layout.
    if (content == m_content)
        return;
    m_content = content;
    updateGeometry();
    update();
}

QSize HeaderMenuButton::sizeHint() const
{
    qreal width = 2 * m_content.horizontalPadding;
    int parts = 0;
    if (m_content.leadingSymbol) {
        width += m_content.leadingSize;
        ++parts;
    }
    if (!text().isEmpty()) {
        width += QFontMetricsF(m_content.font).horizontalAdvance(text());
        ++parts;
    }
    if (m_content.trailingSymbol) {
        width += m_content.trailingSize;
        ++parts;
    }
    width += qMax(0, parts - 1) * m_content.spacing;
    return QSize(int(std::ceil(width)), 30);
}

void HeaderMenuButton::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const QRectF bounds = rect();
    QColor fill = theme::elevatedPanel();
    if (isDown() || underMouse())
        fill = fill.lighter(118);
    theme::paintRoundedPanel(painter, bounds, 8, fill,
                             m_keyboardFocus->showsRing() ? theme::withOpacity(theme::cyan(), 0.6)
                                                              : m_content.outline);

    // Centred as a group, so a fixed-size button keeps its symbol in the middle.
    const qreal contentWidth = sizeHint().width() - 2 * m_content.horizontalPadding;
    qreal x = bounds.center().x() - contentWidth / 2.0;
    const qreal midY = bounds.center().y();
    auto symbolAt = [&](theme::Symbol symbol, int size) {
        theme::drawSymbol(painter, symbol, m_content.foreground, QRectF(x, midY - size / 2.0, size, size));
        x += size + m_content.spacing;
    };
    if (m_content.leadingSymbol)
        symbolAt(*m_content.leadingSymbol, m_content.leadingSize);
    if (!text().isEmpty()) {
        const qreal w = QFontMetricsF(m_content.font).horizontalAdvance(text());
        painter.setFont(m_content.font);
        painter.setPen(m_content.foreground);
        painter.drawText(QRectF(x, 0, w + 1, bounds.height()), Qt::AlignLeft | Qt::AlignVCenter, text());
        x += w + m_content.spacing;
    }
    if (m_content.trailingSymbol)
        symbolAt(*m_content.trailingSymbol, m_content.trailingSize);
}

} // namespace corvane
