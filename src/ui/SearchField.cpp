#include "SearchField.h"

#include "Theme.h"

#include <QPainter>

namespace corvane {

SearchField::SearchField(QWidget* parent) : QLineEdit(parent)
{
    setFrame(false);
    setFixedSize(230, 32);
    setFont(theme::monospaced(12, QFont::Medium));
    setPlaceholderText(QStringLiteral("FILTER DIAGNOSTICS"));
    setTextMargins(12 - 2, 0, 12 - 2, 0); // the edit adds two pixels of its own
    setClearButtonEnabled(false);
    QPalette p = palette();
    p.setColor(QPalette::Base, Qt::transparent);
    p.setColor(QPalette::Text, theme::primaryText());
    p.setColor(QPalette::PlaceholderText, theme::tertiaryText());
    setPalette(p);
    setAttribute(Qt::WA_MacShowFocusRect, false);
}

void SearchField::paintEvent(QPaintEvent* event)
{
    {
        QPainter painter(this);
        theme::paintRoundedPanel(painter, rect(), 8, theme::elevatedPanel(),
                                 hasFocus() ? theme::withOpacity(theme::cyan(), 0.6) : theme::edge());
    }
    QLineEdit::paintEvent(event);
}

} // namespace corvane
