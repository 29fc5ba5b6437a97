#include "Theme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace corvane::theme {

namespace {
QColor rgb(double r, double g, double b, double a = 1.0)
{
    return QColor::fromRgbF(float(r), float(g), float(b), float(a));
}
} // namespace

QColor panelBackground() { return rgb(0.055, 0.065, 0.08); }
QColor elevatedPanel() { return rgb(0.075, 0.088, 0.105); }
QColor edge() { return white(0.075); }
QColor detailBackground() { return rgb(0.045, 0.053, 0.065); }
QColor cardColor() { return rgb(0.07, 0.082, 0.098); }
QColor barShade() { return black(0.18); }
QColor historyShade() { return black(0.11); }
QColor rawOutputShade() { return black(0.24); }

// The system colours of the dark appearance.
QColor cyan() { return QColor(100, 210, 255); }
QColor blue() { return QColor(10, 132, 255); }
QColor green() { return QColor(48, 209, 88); }
QColor orange() { return QColor(255, 159, 10); }
QColor red() { return QColor(255, 69, 58); }
QColor yellow() { return QColor(255, 214, 10); }
QColor primaryText() { return white(0.85); }
QColor secondaryText() { return white(0.55); }
QColor tertiaryText() { return white(0.25); }

QColor withOpacity(QColor color, double opacity)
{
    color.setAlphaF(float(opacity));
    return color;
}

QFont font(double size, QFont::Weight weight, FontDesign design, double tracking)
{
    QFont f;
    switch (design) {
    case FontDesign::standard:
        f = QFont(QStringLiteral("Sans Serif"));
        break;
    case FontDesign::monospaced:
        f = QFont(QStringLiteral("Monospace"));
        f.setStyleHint(QFont::Monospace);
        break;
    case FontDesign::rounded:
        f = QFont(QStringLiteral("Sans Serif"));
        break;
    }
    f.setPixelSize(qRound(size));
    f.setWeight(weight);
    if (tracking != 0.0)
        f.setLetterSpacing(QFont::AbsoluteSpacing, tracking);
    return f;
}

QPixmap symbolPixmap(const QString&, const QColor& color, int size, qreal devicePixelRatio)
{
    QPixmap pixmap(QSize(size, size) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(withOpacity(color, 0.0));
    return pixmap;
}

QIcon symbolIcon(const QString& symbolName, const QColor& color, int size)
{
    return QIcon(symbolPixmap(symbolName, color, size));
}

SeverityStyle severityStyle(DiagnosticSeverity severity)
{
    switch (severity) {
    case DiagnosticSeverity::error:
        return {QStringLiteral("xmark.octagon.fill"), red()};
    case DiagnosticSeverity::warning:
        return {QStringLiteral("exclamationmark.triangle.fill"), orange()};
    case DiagnosticSeverity::note:
        return {QStringLiteral("info.circle.fill"), cyan()};
    }
    return {};
}

void applyTheme(QApplication& app)
{
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette p;
    p.setColor(QPalette::Window, panelBackground());
    p.setColor(QPalette::Base, elevatedPanel());
    p.setColor(QPalette::AlternateBase, cardColor());
    p.setColor(QPalette::Button, elevatedPanel());
    p.setColor(QPalette::WindowText, primaryText());
    p.setColor(QPalette::Text, primaryText());
    p.setColor(QPalette::ButtonText, primaryText());
    p.setColor(QPalette::PlaceholderText, tertiaryText());
    p.setColor(QPalette::Highlight, withOpacity(cyan(), 0.35));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, cyan());
    app.setPalette(p);
}

} // namespace corvane::theme
