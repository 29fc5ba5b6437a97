#pragma once

#include "KeyboardFocus.h"
#include "Theme.h"

#include <QColor>
#include <QFont>
#include <QString>
#include <QToolButton>

#include <optional>

namespace corvane {

// A header button that opens a menu: an optional leading symbol, an optional
// text and an optional trailing symbol, on the header controls' rounded panel.
class HeaderMenuButton : public QToolButton {
    Q_OBJECT

public:
    struct Content {
        std::optional<theme::Symbol> leadingSymbol;
        int leadingSize = 11;
        std::optional<theme::Symbol> trailingSymbol;
        int trailingSize = 9;
        QFont font;
        int spacing = 6;
        int horizontalPadding = 10;
        QColor foreground;
        QColor outline;

        bool operator==(const Content&) const = default;
    };

    explicit HeaderMenuButton(QWidget* parent = nullptr);

    void setContent(const Content& content);
    const Content& content() const { return m_content; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    KeyboardFocus* m_keyboardFocus = new KeyboardFocus(this);
    Content m_content;
};

} // namespace corvane
