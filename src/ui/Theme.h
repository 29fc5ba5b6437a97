#pragma once

#include "DiagnosticSeverity.h"

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QPixmap>
#include <QString>

class QApplication;

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

enum class FontDesign { standard, monospaced, rounded };
// Sizes are in the design's points, which map to logical pixels.
QFont font(double size, QFont::Weight weight = QFont::Normal,
           FontDesign design = FontDesign::standard, double tracking = 0.0);
inline QFont monospaced(double size, QFont::Weight weight = QFont::Normal, double tracking = 0.0)
{
    return font(size, weight, FontDesign::monospaced, tracking);
}

// The icon standing for a symbol name of the design ("sparkles",
// "xmark.octagon.fill", ...), drawn in one colour at a square pixel size.
QPixmap symbolPixmap(const QString& symbolName, const QColor& color, int size, qreal devicePixelRatio = 1.0);
QIcon symbolIcon(const QString& symbolName, const QColor& color, int size);

struct SeverityStyle {
    QString symbol;
    QColor color;
};
SeverityStyle severityStyle(DiagnosticSeverity severity);

// Fusion, the dark palette and cyan as the accent, whatever the desktop uses.
void applyTheme(QApplication& app);

} // namespace corvane::theme
