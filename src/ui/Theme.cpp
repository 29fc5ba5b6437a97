#include "Theme.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QHash>
#include <QLocale>
#include <QRegularExpression>
#include <QPainter>
#include <QPalette>
#include <QPixmapCache>
#include <QProxyStyle>
#include <QStyleOptionMenuItem>
#include <QStyleFactory>
#include <QSvgRenderer>

#include <memory>
#include <unordered_map>
#include <QWidget>

#include <utility>

// The icons live in a static library, whose resource initialiser the linker
// would drop because nothing refers to it; registering it by hand keeps it.
static void registerIconResources()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(icons);
        return true;
    }();
    Q_UNUSED(registered);
}

namespace corvane::theme {

namespace {

QColor rgb(double r, double g, double b, double a = 1.0)
{
    return QColor::fromRgbF(float(r), float(g), float(b), float(a));
}

// The design's symbol names and the Phosphor icons that stand for them. Line
// symbols take the bold weight, which matches the semibold symbols at the
// small sizes the window uses; ".fill" symbols take the filled weight.
struct SymbolEntry {
    QString name;
    QString file;
};

// In the order of Symbol.
const std::array<SymbolEntry, allSymbols.size()>& symbolTable()
{
    static const std::array<SymbolEntry, allSymbols.size()> table{{
        {QStringLiteral("viewfinder"), QStringLiteral("scan-bold")},
        {QStringLiteral("scope"), QStringLiteral("crosshair-bold")},
        {QStringLiteral("chevron.up.chevron.down"), QStringLiteral("caret-up-down-bold")},
        {QStringLiteral("ellipsis"), QStringLiteral("dots-three-bold")},
        {QStringLiteral("sparkles"), QStringLiteral("sparkle-fill")},
        {QStringLiteral("checkmark"), QStringLiteral("check-bold")},
        {QStringLiteral("checkmark.circle.fill"), QStringLiteral("check-circle-fill")},
        {QStringLiteral("xmark"), QStringLiteral("x-bold")},
        // The family has no octagon with a cross; the filled circle with a
        // cross reads the same at counter sizes.
        {QStringLiteral("xmark.octagon.fill"), QStringLiteral("x-circle-fill")},
        {QStringLiteral("exclamationmark"), QStringLiteral("exclamation-mark-bold")},
        {QStringLiteral("exclamationmark.triangle.fill"), QStringLiteral("warning-fill")},
        {QStringLiteral("info.circle.fill"), QStringLiteral("info-fill")},
        {QStringLiteral("chevron.down"), QStringLiteral("caret-down-bold")},
        {QStringLiteral("chevron.right"), QStringLiteral("caret-right-bold")},
        {QStringLiteral("chevron.left"), QStringLiteral("caret-left-bold")},
        {QStringLiteral("pin.fill"), QStringLiteral("push-pin-fill")},
        {QStringLiteral("pin.slash.fill"), QStringLiteral("push-pin-slash-fill")},
        {QStringLiteral("eye.fill"), QStringLiteral("eye-fill")},
        {QStringLiteral("eye.slash.fill"), QStringLiteral("eye-slash-fill")},
        {QStringLiteral("arrow.up.forward.square"), QStringLiteral("arrow-square-out-bold")},
        {QStringLiteral("doc.on.doc"), QStringLiteral("copy-bold")},
        {QStringLiteral("text.bubble"), QStringLiteral("chat-text-bold")},
    }};
    return table;
}

QSvgRenderer* rendererFor(Symbol symbol)
{
    // Parsed once per icon and owned by the cache; the GUI thread is the only user.
    static std::array<std::unique_ptr<QSvgRenderer>, allSymbols.size()> renderers;
    std::unique_ptr<QSvgRenderer>& renderer = renderers[size_t(symbol)];
    if (!renderer) {
        registerIconResources();
        renderer = std::make_unique<QSvgRenderer>(QStringLiteral(":/corvane/icons/")
                                                  + symbolTable()[size_t(symbol)].file + QStringLiteral(".svg"));
    }
    return renderer->isValid() ? renderer.get() : nullptr;
}

// Fusion with the few changes a dark instrument panel needs: menus that stand
// out from the window with a hairline frame, visible separators, and a plain
// checkmark for checked items (the design's menus have no boxes or radios).
class ThemeStyle : public QProxyStyle {
public:
    ThemeStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override
    {
        if (element == PE_PanelMenu || element == PE_FrameMenu) {
            painter->save();
            painter->setPen(QPen(white(0.12), 1.0));
            painter->setBrush(menuBackground());
            painter->drawRect(QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5));
            painter->restore();
            return;
        }
        QProxyStyle::drawPrimitive(element, option, painter, widget);
    }

    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override
    {
        const auto* item = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
        if (element != CE_MenuItem || !item) {
            QProxyStyle::drawControl(element, option, painter, widget);
            return;
        }
        if (item->menuItemType == QStyleOptionMenuItem::Separator) {
            const QRect r = item->rect;
            painter->fillRect(QRect(r.left() + 8, r.center().y(), r.width() - 16, 1), white(0.1));
            return;
        }
        QStyleOptionMenuItem plain = *item;
        plain.checkType = QStyleOptionMenuItem::NotCheckable;
        plain.checked = false;
        QProxyStyle::drawControl(element, &plain, painter, widget);
        // A picker's list leaves no room for the mark; its current item is
        // the highlighted one when it opens.
        const bool pickerList = qobject_cast<const QComboBox*>(widget) != nullptr;
        if (!pickerList && item->checkType != QStyleOptionMenuItem::NotCheckable && item->checked) {
            const bool selected = item->state & State_Selected;
            const QRect r = item->rect;
            drawSymbol(*painter, Symbol::checkmark, selected ? QColor(Qt::white) : primaryText(),
                       QRectF(r.left() + 6, r.center().y() - 6, 12, 12));
        }
    }

    static QColor menuBackground() { return QColor::fromRgbF(0.10f, 0.115f, 0.135f); }
};

QString familyFor(FontDesign design)
{
    switch (design) {
    case FontDesign::standard:
        return QStringLiteral("Inter");
    case FontDesign::monospaced:
        return QStringLiteral("JetBrains Mono");
    case FontDesign::rounded:
        return QStringLiteral("Quicksand");
    }
    return {};
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

QString preferredFamily(FontDesign design)
{
    return familyFor(design);
}

QFont font(double size, QFont::Weight weight, FontDesign design, double tracking)
{
    QFont f;
    // The packaged faces first, then what every Debian desktop has, so a
    // missing package degrades to a similar face rather than a serif one.
    switch (design) {
    case FontDesign::standard:
        f.setFamilies({familyFor(design), QStringLiteral("DejaVu Sans"), QStringLiteral("Sans Serif")});
        f.setStyleHint(QFont::SansSerif);
        break;
    case FontDesign::monospaced:
        f.setFamilies({familyFor(design), QStringLiteral("DejaVu Sans Mono"), QStringLiteral("Monospace")});
        f.setStyleHint(QFont::Monospace);
        f.setFixedPitch(true);
        break;
    case FontDesign::rounded:
        f.setFamilies({familyFor(design), familyFor(FontDesign::standard), QStringLiteral("DejaVu Sans")});
        f.setStyleHint(QFont::SansSerif);
        break;
    }
    f.setPixelSize(qMax(1, qRound(size)));
    f.setWeight(weight);
    f.setHintingPreference(QFont::PreferNoHinting);
    if (tracking != 0.0)
        f.setLetterSpacing(QFont::AbsoluteSpacing, tracking);
    return f;
}

QString symbolName(Symbol symbol)
{
    return symbolTable()[size_t(symbol)].name;
}

QPixmap symbolPixmap(Symbol symbol, const QColor& color, int size, qreal devicePixelRatio)
{
    const int pixels = qMax(1, qRound(size * devicePixelRatio));
    const QString key =
        QStringLiteral("corvane-symbol:%1:%2:%3").arg(int(symbol)).arg(color.rgba()).arg(pixels);
    QPixmap pixmap;
    if (QPixmapCache::find(key, &pixmap)) {
        pixmap.setDevicePixelRatio(devicePixelRatio);
        return pixmap;
    }

    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    if (QSvgRenderer* renderer = rendererFor(symbol)) {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer->render(&painter, QRectF(0, 0, pixels, pixels));
        // The icons are drawn in one colour; keeping their coverage and
        // painting ours over it recolours them without touching the files.
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), color);
    }
    pixmap = QPixmap::fromImage(std::move(image));
    QPixmapCache::insert(key, pixmap);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

QIcon symbolIcon(Symbol symbol, const QColor& color, int size)
{
    QIcon icon;
    icon.addPixmap(symbolPixmap(symbol, color, size, 1.0));
    icon.addPixmap(symbolPixmap(symbol, color, size, 2.0));
    return icon;
}

void drawSymbol(QPainter& painter, Symbol symbol, const QColor& color, const QRectF& rect)
{
    const qreal ratio = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    const int side = qMax(1, qRound(qMin(rect.width(), rect.height())));
    const QPixmap pixmap = symbolPixmap(symbol, color, side, ratio);
    const QRectF target(rect.center().x() - side / 2.0, rect.center().y() - side / 2.0, side, side);
    painter.drawPixmap(target, pixmap, QRectF(pixmap.rect()));
}

SeverityStyle severityStyle(DiagnosticSeverity severity)
{
    switch (severity) {
    case DiagnosticSeverity::error:
        return {Symbol::xmarkOctagonFill, red()};
    case DiagnosticSeverity::warning:
        return {Symbol::exclamationmarkTriangleFill, orange()};
    case DiagnosticSeverity::note:
        return {Symbol::infoCircleFill, cyan()};
    }
    return {Symbol::infoCircleFill, cyan()};
}

void paintRoundedPanel(QPainter& painter, const QRectF& rect, double radius,
                       const QColor& fill, const QColor& outline)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    // Half a pixel inwards keeps the 1-point stroke inside the bounds.
    const QRectF inner = rect.adjusted(0.5, 0.5, -0.5, -0.5);
    const double r = qMin(radius, qMin(inner.width(), inner.height()) / 2.0);
    painter.setPen(outline.alpha() > 0 ? QPen(outline, 1.0) : QPen(Qt::NoPen));
    painter.setBrush(fill.alpha() > 0 ? QBrush(fill) : QBrush(Qt::NoBrush));
    painter.drawRoundedRect(inner, r, r);
    painter.restore();
}

QString timeOfDay(const QDateTime& dateTime)
{
    const QLocale locale = QLocale::system();
    QString format = locale.timeFormat(QLocale::ShortFormat);
    // Some locales (C among them) keep the seconds in their short style.
    format.remove(QRegularExpression(QStringLiteral("[:.]ss?")));
    return locale.toString(dateTime.toLocalTime().time(), format);
}

void setForeground(QWidget& widget, const QColor& color)
{
    QPalette palette = widget.palette();
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, color);
    widget.setPalette(palette);
}

void applyTheme(QApplication& app)
{
    app.setStyle(new ThemeStyle);
    QPalette p;
    p.setColor(QPalette::Window, panelBackground());
    p.setColor(QPalette::Base, elevatedPanel());
    p.setColor(QPalette::AlternateBase, cardColor());
    p.setColor(QPalette::Button, elevatedPanel());
    p.setColor(QPalette::Light, white(0.12));
    p.setColor(QPalette::Midlight, white(0.09));
    p.setColor(QPalette::Mid, white(0.06));
    p.setColor(QPalette::Dark, black(0.5));
    p.setColor(QPalette::Shadow, black(0.7));
    p.setColor(QPalette::WindowText, primaryText());
    p.setColor(QPalette::Text, primaryText());
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::ButtonText, primaryText());
    p.setColor(QPalette::PlaceholderText, tertiaryText());
    p.setColor(QPalette::Highlight, withOpacity(cyan(), 0.35));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, cyan());
    p.setColor(QPalette::LinkVisited, cyan());
    p.setColor(QPalette::ToolTipBase, elevatedPanel());
    p.setColor(QPalette::ToolTipText, primaryText());
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, tertiaryText());
    app.setPalette(p);
    QPalette menu = p;
    menu.setColor(QPalette::Window, ThemeStyle::menuBackground());
    menu.setColor(QPalette::Base, ThemeStyle::menuBackground());
    app.setPalette(menu, "QMenu");
    app.setFont(font(13));
}

} // namespace corvane::theme
