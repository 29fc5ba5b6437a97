#pragma once

#include <QLineEdit>

namespace corvane {

// The header's borderless filter field on a rounded panel.
class SearchField : public QLineEdit {
    Q_OBJECT

public:
    explicit SearchField(QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace corvane
