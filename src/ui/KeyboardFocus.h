#pragma once

#include <QFocusEvent>
#include <QWidget>

namespace corvane {

// Whether a control's focus came from the keyboard. Controls draw their
// focus ring only then: focus given at launch or by a click is no reason
// to look selected. A menu or another window taking focus for a while
// leaves the ring as it was.
class KeyboardFocus {
public:
    void focusIn(const QFocusEvent& event)
    {
        switch (event.reason()) {
        case Qt::TabFocusReason:
        case Qt::BacktabFocusReason:
            m_fromKeyboard = true;
            break;
        case Qt::PopupFocusReason:
        case Qt::ActiveWindowFocusReason:
            break;
        default:
            m_fromKeyboard = false;
        }
    }
    void focusOut(const QFocusEvent& event)
    {
        if (event.reason() != Qt::PopupFocusReason && event.reason() != Qt::ActiveWindowFocusReason)
            m_fromKeyboard = false;
    }
    bool showsRing(const QWidget& widget) const { return m_fromKeyboard && widget.hasFocus(); }

private:
    bool m_fromKeyboard = false;
};

} // namespace corvane
