#pragma once

#include <QLabel>

namespace corvane {

// A one-line label that ends in "…" when it is narrower than its text,
// instead of widening its column. text() stays the whole text.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace corvane
