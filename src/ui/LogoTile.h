#pragma once

#include <QWidget>

namespace corvane {

// The brand tile at the left of the header: a viewfinder on a faint cyan
// gradient with a cyan outline.
class LogoTile : public QWidget {
    Q_OBJECT

public:
    explicit LogoTile(QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace corvane
