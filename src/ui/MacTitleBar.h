#pragma once

class QWidget;

namespace corvane {

// Lets the window's content reach its top edge under a transparent title
// bar without a title; the system's window buttons stay where they are.
void extendUnderTitleBar(QWidget& window);

} // namespace corvane
