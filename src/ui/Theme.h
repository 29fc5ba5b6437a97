#pragma once

#include "DiagnosticSeverity.h"

#include <QColor>
#include <QDateTime>
#include <QFont>
#include <QIcon>
#include <QPixmap>
#include <QRectF>
#include <QString>
#include <QStringList>

#include <array>

class QApplication;
class QPainter;
class QWidget;

namespace corvane::theme {

// The window's one look: a dark instrument panel with cyan as the accent.
// Every view takes its colours, fonts, icons and sizes from here.

// Palette.
QColor panelBackground();   // window, sidebar, behind the diagnostic list
QColor elevatedPanel();     // header controls and the summary strip
QColor edge();              // hairlines and control outlines: white at 0.075
QColor detailBackground();  // detail column
QColor cardColor();         // message card of the detail view
QColor barShade();          // header bar and action bar: black at 0.18
QColor historyShade();      // build history section: black at 0.11
QColor rawOutputShade();    // raw build output card: black at 0.24

// Named colours of the dark appearance.
QColor cyan();
QColor blue();
QColor green();
QColor orange();
QColor red();
QColor yellow();
QColor primaryText();
QColor secondaryText();
QColor tertiaryText();

QColor withOpacity(QColor color, double opacity);
inline QColor white(double opacity) { return withOpacity(Qt::white, opacity); }
inline QColor black(double opacity) { return withOpacity(Qt::black, opacity); }

// A counter shows its colour only while it counts something.
inline QColor counterColor(qsizetype count, const QColor& color)
{
    return count > 0 ? color : secondaryText();
}

enum class FontDesign { standard, monospaced, rounded };
// Sizes are in the design's points, which map to logical pixels.
QFont font(double size, QFont::Weight weight = QFont::Normal,
           FontDesign design = FontDesign::standard, double tracking = 0.0);
inline QFont monospaced(double size, QFont::Weight weight = QFont::Normal, double tracking = 0.0)
{
    return font(size, weight, FontDesign::monospaced, tracking);
}
// The family asked for first for a design; fallbacks follow it in the font.
QString preferredFamily(FontDesign design);

// The design's symbols, each of which the theme has an icon for.
enum class Symbol {
    viewfinder,
    scope,
    chevronUpChevronDown,
    ellipsis,
    sparkles,
    checkmark,
    checkmarkCircleFill,
    xmark,
    xmarkOctagonFill,
    exclamationmark,
    exclamationmarkTriangleFill,
    infoCircleFill,
    chevronDown,
    chevronRight,
    chevronLeft,
    pinFill,
    pinSlashFill,
    eyeFill,
    eyeSlashFill,
    arrowUpForwardSquare,
    docOnDoc,
    textBubble,
};
inline constexpr std::array allSymbols{
    Symbol::viewfinder,
    Symbol::scope,
    Symbol::chevronUpChevronDown,
    Symbol::ellipsis,
    Symbol::sparkles,
    Symbol::checkmark,
    Symbol::checkmarkCircleFill,
    Symbol::xmark,
    Symbol::xmarkOctagonFill,
    Symbol::exclamationmark,
    Symbol::exclamationmarkTriangleFill,
    Symbol::infoCircleFill,
    Symbol::chevronDown,
    Symbol::chevronRight,
    Symbol::chevronLeft,
    Symbol::pinFill,
    Symbol::pinSlashFill,
    Symbol::eyeFill,
    Symbol::eyeSlashFill,
    Symbol::arrowUpForwardSquare,
    Symbol::docOnDoc,
    Symbol::textBubble,
};
// The design's name of a symbol: "xmark.octagon.fill" for xmarkOctagonFill.
QString symbolName(Symbol symbol);

// The symbol's icon drawn in one colour at a square pixel size.
QPixmap symbolPixmap(Symbol symbol, const QColor& color, int size, qreal devicePixelRatio = 1.0);
QIcon symbolIcon(Symbol symbol, const QColor& color, int size);
// Draws the symbol into the rectangle, sharp at the painter's pixel ratio.
void drawSymbol(QPainter& painter, Symbol symbol, const QColor& color, const QRectF& rect);

struct SeverityStyle {
    Symbol symbol;
    QColor color;
};
SeverityStyle severityStyle(DiagnosticSeverity severity);

// A rounded rectangle with a 1-point outline drawn inside its bounds, the
// shape of header controls, cards and capsules (radius = half the height).
void paintRoundedPanel(QPainter& painter, const QRectF& rect, double radius,
                       const QColor& fill, const QColor& outline);

// A time of day in the locale's short style, without seconds ("9:41 AM",
// "09:41").
QString timeOfDay(const QDateTime& dateTime);

// Sets the colour a label or button draws its text in.
void setForeground(QWidget& widget, const QColor& color);

// Fusion, the dark palette and cyan as the accent, whatever the desktop uses.
void applyTheme(QApplication& app);

} // namespace corvane::theme
