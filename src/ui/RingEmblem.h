#pragma once

#include "Theme.h"

#include <QColor>
#include <QString>
#include <QWidget>

namespace corvane {

// The emblem of empty and clean states: a symbol inside two concentric rings,
// the outer thin and faint, the inner thick and fainter, all in one colour.
class RingEmblem : public QWidget {
    Q_OBJECT

public:
    struct Style {
        theme::Symbol symbol = theme::Symbol::checkmark;
        QColor accent;
        double outerDiameter = 92;
        double outerLineWidth = 1;
        double outerOpacity = 0.16;
        double innerDiameter = 70;
        double innerLineWidth = 9;
        double innerOpacity = 0.06;
        double symbolSize = 31;
    };

    explicit RingEmblem(Style style, QWidget* parent = nullptr);

    const Style& style() const { return m_style; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Style m_style;
};

} // namespace corvane
