#pragma once

#include "KeyboardFocus.h"

#include <QComboBox>

namespace corvane {

// A menu-style picker of the header: the current choice and an up-down
// chevron on the header controls' rounded panel.
class PickerBox : public QComboBox {
    Q_OBJECT

public:
    PickerBox(int width, const QString& accessibleName, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    KeyboardFocus* m_keyboardFocus = new KeyboardFocus(this);
};

} // namespace corvane
