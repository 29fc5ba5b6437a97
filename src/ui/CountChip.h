#pragma once

#include "Theme.h"

#include <QColor>
#include <QFont>
#include <QString>
#include <QWidget>

namespace corvane {

// A symbol, a bold number and an optional caption, in the chip's colour while
// the number is above zero and secondary at zero. With `capsule` it sits in an
// outlined capsule (the header counters); otherwise it has no shape behind it.
class CountChip : public QWidget {
    Q_OBJECT

public:
    struct Style {
        theme::Symbol symbol = theme::Symbol::checkmark;
        QColor color;
        QFont font;
        int symbolSize = 12;
        int spacing = 5;
        QString caption;
        bool capsule = false;
        int horizontalPadding = 0;
        int height = 20;
    };

    explicit CountChip(Style style, QWidget* parent = nullptr);

    void setCount(qsizetype count);
    qsizetype count() const { return m_count; }
    // The number as shown.
    QString text() const;
    // The colour the symbol and number are drawn in now.
    QColor foreground() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QFont numberFont() const;
    void updateText();

    Style m_style;
    qsizetype m_count = 0;
};

} // namespace corvane
