#pragma once

#include <QColor>
#include <QWidget>

namespace corvane {

// A small filled circle in a status colour.
class StatusDot : public QWidget {
    Q_OBJECT

public:
    explicit StatusDot(int diameter = 6, QWidget* parent = nullptr);

    void setColor(const QColor& color);
    QColor color() const { return m_color; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor m_color;
};

} // namespace corvane
