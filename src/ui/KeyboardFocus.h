#pragma once

#include <QEvent>
#include <QFocusEvent>
#include <QObject>
#include <QWidget>

namespace corvane {

// Whether a control's focus came from the keyboard. Controls draw their
// focus ring only then: focus given at launch or by a click is no reason
// to look selected. A menu or another window taking focus for a while
// leaves the ring as it was.
class KeyboardFocus : public QObject {
public:
    explicit KeyboardFocus(QWidget* control) : QObject(control), m_control(*control)
    {
        control->installEventFilter(this);
    }

    bool showsRing() const { return m_fromKeyboard && m_control.hasFocus(); }

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() != QEvent::FocusIn && event->type() != QEvent::FocusOut)
            return false;
        const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
        if (reason == Qt::PopupFocusReason || reason == Qt::ActiveWindowFocusReason)
            return false;
        m_fromKeyboard =
            event->type() == QEvent::FocusIn && (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason);
        return false;
    }

private:
    QWidget& m_control;
    bool m_fromKeyboard = false;
};

} // namespace corvane
