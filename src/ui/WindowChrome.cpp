#include "WindowChrome.h"

#include "ContentView.h"
#include "HeaderBar.h"
#include "Theme.h"

#if defined(Q_OS_MACOS)
#include "MacTitleBar.h"
#endif

#include <QAbstractButton>
#include <QApplication>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWindow>

namespace corvane {

namespace {

// The system's close, minimise and zoom buttons sit over the header's
// leading edge on macOS; the brand starts after them.
[[maybe_unused]] constexpr int trafficLightsInset = 78;

enum class Glyph { minimise, maximise, close };

// A window button in the header controls' look: a plain glyph that gets the
// controls' rounded panel under the pointer, red for close.
class WindowButton : public QAbstractButton {
public:
    WindowButton(Glyph glyph, QWidget* parent) : QAbstractButton(parent), m_glyph(glyph)
    {
        setFixedSize(30, 30);
        // Title bar buttons are no tab stops; the desktop has keys for them.
        setFocusPolicy(Qt::NoFocus);
        setAttribute(Qt::WA_Hover);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const bool hot = underMouse() || isDown();
        QColor ink = theme::secondaryText();
        if (hot && m_glyph == Glyph::close) {
            theme::paintRoundedPanel(painter, QRectF(rect()), 8, theme::withOpacity(theme::red(), 0.85),
                                     Qt::transparent);
            ink = Qt::white;
        } else if (hot) {
            theme::paintRoundedPanel(painter, QRectF(rect()), 8, theme::elevatedPanel(), theme::edge());
            ink = theme::primaryText();
        }
        painter.setPen(QPen(ink, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::NoBrush);
        const QPointF c = QRectF(rect()).center();
        const qreal r = 4.5;
        switch (m_glyph) {
        case Glyph::minimise:
            painter.drawLine(QPointF(c.x() - r, c.y() + 0.5), QPointF(c.x() + r, c.y() + 0.5));
            break;
        case Glyph::maximise:
            if (window()->isMaximized()) {
                // Restore: a second window behind the first.
                painter.drawRect(QRectF(c.x() - r, c.y() - r + 2.5, 2 * r - 2.5, 2 * r - 2.5));
                QPainterPath behind;
                behind.moveTo(c.x() - r + 2.5, c.y() - r + 2.5);
                behind.lineTo(c.x() - r + 2.5, c.y() - r);
                behind.lineTo(c.x() + r, c.y() - r);
                behind.lineTo(c.x() + r, c.y() + r - 2.5);
                behind.lineTo(c.x() + r - 2.5, c.y() + r - 2.5);
                painter.drawPath(behind);
            } else {
                painter.drawRect(QRectF(c.x() - r, c.y() - r, 2 * r, 2 * r));
            }
            break;
        case Glyph::close:
            painter.drawLine(QPointF(c.x() - r, c.y() - r), QPointF(c.x() + r, c.y() + r));
            painter.drawLine(QPointF(c.x() - r, c.y() + r), QPointF(c.x() + r, c.y() - r));
            break;
        }
    }

private:
    Glyph m_glyph;
};

// The edge a coordinate lies within `reach` of, if any.
Qt::Edges edgeNear(int value, int length, int reach, Qt::Edge low, Qt::Edge high)
{
    if (value < reach)
        return low;
    if (value >= length - reach)
        return high;
    return {};
}

Qt::CursorShape resizeCursor(Qt::Edges edges)
{
    if (edges == (Qt::TopEdge | Qt::LeftEdge) || edges == (Qt::BottomEdge | Qt::RightEdge))
        return Qt::SizeFDiagCursor;
    if (edges == (Qt::TopEdge | Qt::RightEdge) || edges == (Qt::BottomEdge | Qt::LeftEdge))
        return Qt::SizeBDiagCursor;
    return edges & (Qt::LeftEdge | Qt::RightEdge) ? Qt::SizeHorCursor : Qt::SizeVerCursor;
}

} // namespace

WindowChrome::WindowChrome(ContentView& window) : QObject(&window), m_window(window)
{
#if defined(Q_OS_MACOS)
    window.header().setLeadingInset(trafficLightsInset);
    extendUnderTitleBar(window);
#else
    m_drawsTitleBar = true;
    window.setWindowFlag(Qt::FramelessWindowHint);

    m_buttons = new QWidget(&window.header());
    m_buttons->setObjectName(QStringLiteral("windowButtons"));
    auto* layout = new QHBoxLayout(m_buttons);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    auto add = [&](Glyph glyph, const QString& objectName, const QString& name) {
        auto* button = new WindowButton(glyph, m_buttons);
        button->setObjectName(objectName);
        button->setAccessibleName(name);
        button->setToolTip(name);
        layout->addWidget(button);
        return button;
    };
    connect(add(Glyph::minimise, QStringLiteral("minimiseButton"), QStringLiteral("Minimise")),
            &QAbstractButton::clicked, &window, &QWidget::showMinimized);
    m_maximise = add(Glyph::maximise, QStringLiteral("maximiseButton"), QStringLiteral("Maximise"));
    connect(m_maximise, &QAbstractButton::clicked, this, &WindowChrome::toggleMaximised);
    connect(add(Glyph::close, QStringLiteral("closeButton"), QStringLiteral("Close")), &QAbstractButton::clicked,
            &window, &QWidget::close);
    window.header().addWindowControls(m_buttons);

    // The press that moves or resizes the window must be taken before any
    // widget sees it, so the native window's events are watched.
    window.winId();
    m_handle = window.windowHandle();
    m_handle->installEventFilter(this);
    window.installEventFilter(this);
#endif
}

WindowChrome::Hit WindowChrome::hitTest(QPoint pos) const
{
    if (!m_drawsTitleBar || !m_window.rect().contains(pos))
        return {};
    if (!(m_window.windowState() & (Qt::WindowMaximized | Qt::WindowFullScreen))) {
        const int width = m_window.width();
        const int height = m_window.height();
        const Qt::Edges across = edgeNear(pos.x(), width, resizeBorder, Qt::LeftEdge, Qt::RightEdge);
        const Qt::Edges down = edgeNear(pos.y(), height, resizeBorder, Qt::TopEdge, Qt::BottomEdge);
        Qt::Edges edges = across | down;
        // Close to a corner, an edge's band resizes both of its edges.
        if (across)
            edges |= edgeNear(pos.y(), height, cornerReach, Qt::TopEdge, Qt::BottomEdge);
        if (down)
            edges |= edgeNear(pos.x(), width, cornerReach, Qt::LeftEdge, Qt::RightEdge);
        if (edges)
            return {Area::resize, edges};
    }
    const QWidget& header = m_window.header();
    if (!header.rect().contains(header.mapFrom(&m_window, pos)))
        return {};
    // Whatever takes a click or focus is a control; labels, the logo and
    // the space between them belong to the title bar.
    for (const QWidget* widget = m_window.childAt(pos); widget && widget != &header; widget = widget->parentWidget()) {
        if (widget->focusPolicy() != Qt::NoFocus || qobject_cast<const QAbstractButton*>(widget))
            return {Area::control, {}};
    }
    return {Area::move, {}};
}

bool WindowChrome::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == &m_window && event->type() == QEvent::WindowStateChange)
        showWindowState();
    else if (watched == m_handle && m_drawsTitleBar)
        return handleWindowEvent(event);
    return QObject::eventFilter(watched, event);
}

bool WindowChrome::handleWindowEvent(QEvent* event)
{
    const QEvent::Type type = event->type();
    if (type == QEvent::Leave) {
        setEdgeCursor(std::nullopt, {});
        return false;
    }
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonDblClick && type != QEvent::MouseMove
        && type != QEvent::MouseButtonRelease)
        return false;
    auto* mouse = static_cast<QMouseEvent*>(event);
    const QPoint pos = mouse->position().toPoint();

    if (type == QEvent::MouseMove) {
        if (m_pressPos && (mouse->buttons() & Qt::LeftButton)) {
            // A click stays a click until the pointer really moves.
            if ((pos - *m_pressPos).manhattanLength() < QApplication::startDragDistance())
                return true;
            m_pressPos.reset();
            if (!m_handle->startSystemMove())
                useSystemDecorations();
            return true;
        }
        m_pressPos.reset();
        const Hit hit = hitTest(pos);
        setEdgeCursor(hit.area == Area::resize ? std::optional(resizeCursor(hit.edges)) : std::nullopt, pos);
        return false;
    }
    if (type == QEvent::MouseButtonRelease) {
        const bool pressed = m_pressPos.has_value();
        m_pressPos.reset();
        return pressed;
    }
    if (mouse->button() != Qt::LeftButton)
        return false;
    const Hit hit = hitTest(pos);
    if (hit.area == Area::resize) {
        if (!m_handle->startSystemResize(hit.edges))
            useSystemDecorations();
        return true;
    }
    if (hit.area != Area::move)
        return false;
    if (type == QEvent::MouseButtonDblClick) {
        m_pressPos.reset();
        toggleMaximised();
    } else {
        m_pressPos = pos;
    }
    return true;
}

void WindowChrome::toggleMaximised()
{
    if (m_window.isMaximized())
        m_window.showNormal();
    else
        m_window.showMaximized();
}

void WindowChrome::showWindowState()
{
    if (!m_maximise)
        return;
    const QString name = m_window.isMaximized() ? QStringLiteral("Restore") : QStringLiteral("Maximise");
    m_maximise->setAccessibleName(name);
    m_maximise->setToolTip(name);
    m_maximise->update();
}

void WindowChrome::setEdgeCursor(const std::optional<Qt::CursorShape>& shape, QPoint windowPos)
{
    if (!m_handle)
        return;
    if (shape) {
        m_handle->setCursor(*shape);
        m_edgeCursor = true;
        return;
    }
    if (!m_edgeCursor)
        return;
    // Back to the cursor of the widget under the pointer, which saw no
    // enter event while the pointer stayed inside it.
    m_edgeCursor = false;
    const QWidget* under = m_window.childAt(windowPos);
    m_handle->setCursor((under ? under : &m_window)->cursor());
}

void WindowChrome::useSystemDecorations()
{
    if (!m_drawsTitleBar)
        return;
    m_drawsTitleBar = false;
    m_pressPos.reset();
    // Changing the window's flags can replace its native window, so not
    // while that window is still delivering the press.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_handle)
                m_handle->unsetCursor();
            m_buttons->hide();
            const bool visible = m_window.isVisible();
            m_window.setWindowFlag(Qt::FramelessWindowHint, false);
            if (visible)
                m_window.show();
        },
        Qt::QueuedConnection);
}

} // namespace corvane
