#include "DiagnosticRowDelegate.h"

#include "DiagnosticListModel.h"
#include "DisplayText.h"
#include "Theme.h"

#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>
#include <QTransform>

#include <cmath>
#include <limits>

namespace corvane {

namespace {

// Horizontal geometry of a row, in logical pixels.
constexpr int sideInset = 14;        // from the list's edge to the content
constexpr int highlightInset = 6;    // from the list's edge to the selection
constexpr int symbolFrame = 18;
constexpr int symbolSize = 14;
constexpr int columnSpacing = 11;
constexpr int badgeSpacing = 7;
// Vertical geometry.
constexpr int rowGap = 2;            // between the highlights of adjacent rows
constexpr int rowPadding = 5;
constexpr int lineSpacing = 5;       // between message and location
constexpr int headerHeight = 30;
constexpr int badgePaddingX = 6;
constexpr int badgePaddingY = 2;
// Past this many remembered message widths the cache starts over, so a long
// session with many large builds keeps a bounded footprint.
constexpr qsizetype advanceCacheLimit = 100000;

using RowKind = DiagnosticListModel::RowKind;

const DiagnosticListModel& listModel(const QModelIndex& index)
{
    return *static_cast<const DiagnosticListModel*>(index.model());
}

} // namespace

DiagnosticRowDelegate::DiagnosticRowDelegate(QObject* parent)
    : QStyledItemDelegate(parent)
    , m_headerFont(theme::monospaced(10, QFont::Bold))
    , m_messageFont(theme::font(13, QFont::Medium))
    , m_locationFont(theme::monospaced(10))
    , m_badgeFont(theme::monospaced(8, QFont::Bold))
    , m_headerMetrics(m_headerFont)
    , m_messageMetrics(m_messageFont)
    , m_locationMetrics(m_locationFont)
    , m_badgeMetrics(m_badgeFont)
{
}

void DiagnosticRowDelegate::setAvailableWidth(int width)
{
    m_width = width;
}

int DiagnosticRowDelegate::badgeWidth(const QString& badge) const
{
    // Only two badges exist; measuring them once keeps shaping out of the
    // layout pass.
    auto it = m_badgeWidths.constFind(badge);
    if (it == m_badgeWidths.cend())
        it = m_badgeWidths.insert(badge, m_badgeMetrics.horizontalAdvance(badge) + 2 * badgePaddingX);
    return *it;
}

int DiagnosticRowDelegate::messageWidth(int rowWidth, const QString& badge) const
{
    int width = rowWidth - 2 * sideInset - symbolFrame - columnSpacing;
    if (!badge.isEmpty())
        width -= badgeWidth(badge) + badgeSpacing;
    return qMax(width, 20);
}

int DiagnosticRowDelegate::messageAdvance(const QUuid& id, const QString& fullMessage) const
{
    auto it = m_advances.constFind(id);
    if (it != m_advances.cend())
        return *it;
    const QString message = displayText::bounded(fullMessage, displayText::lineLimit);
    if (m_advances.size() >= advanceCacheLimit)
        m_advances.clear();
    int advance = 0;
    if (message.contains(u'\n')) {
        advance = std::numeric_limits<int>::max();
    } else if (const std::optional<qreal> estimate = asciiAdvance(message)) {
        // Kerning can make the shaped text a little wider than the sum of its
        // letters; the margin sends such borderline messages to two lines
        // rather than letting them be cut short on one.
        advance = int(std::ceil(*estimate * 1.04)) + 2;
    } else {
        advance = m_messageMetrics.horizontalAdvance(message);
    }
    m_advances.insert(id, advance);
    return advance;
}

std::optional<qreal> DiagnosticRowDelegate::asciiAdvance(const QString& text) const
{
    // Shaping a whole message costs tens of microseconds, which adds up to
    // half a second for a large build; summing cached letter widths is about
    // a hundred times quicker and is exact enough to choose one or two lines.
    if (m_asciiAdvances.empty()) {
        const QFontMetricsF metrics(m_messageFont);
        m_asciiAdvances.resize(128);
        for (char16_t c = 0; c < 128; ++c)
            m_asciiAdvances[c] = metrics.horizontalAdvance(QChar(c));
    }
    qreal sum = 0;
    for (const QChar c : text) {
        if (c.unicode() >= 128)
            return std::nullopt;
        sum += m_asciiAdvances[c.unicode()];
    }
    return sum;
}

const QPixmap& DiagnosticRowDelegate::symbol(theme::Symbol name, const QColor& color, qreal devicePixelRatio) const
{
    const QString key = QString::number(int(name)) + u'|' + QString::number(color.rgba()) + u'|' + QString::number(devicePixelRatio);
    auto it = m_symbols.find(key);
    if (it == m_symbols.end())
        it = m_symbols.insert(key, theme::symbolPixmap(name, color, symbolSize, devicePixelRatio));
    return *it;
}

QSize DiagnosticRowDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex& index) const
{
    const DiagnosticListModel& model = listModel(index);
    const int row = index.row();
    if (!model.isDiagnosticRow(row))
        return {1, headerHeight};
    const BuildDiagnostic* d = model.diagnosticAt(row);
    const int lines = messageAdvance(d->id, d->message) <= messageWidth(m_width, model.badgeAt(row)) ? 1 : 2;
    const int messageBlock = qMax(lines * m_messageMetrics.lineSpacing(), symbolSize);
    // Width 1: the list stretches rows to its own width and must never need
    // a horizontal scroll bar.
    return {1, 2 * rowGap + 2 * rowPadding + messageBlock + lineSpacing + m_locationMetrics.height()};
}

void DiagnosticRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (listModel(index).isDiagnosticRow(index.row()))
        paintDiagnostic(painter, option, index);
    else
        paintHeader(painter, option.rect, index);
    painter->restore();
}

void DiagnosticRowDelegate::paintHeader(QPainter* painter, const QRect& rect, const QModelIndex& index) const
{
    const DiagnosticListModel& model = listModel(index);
    const int row = index.row();
    // Headers sit low in their band, close to the rows they head.
    QRect content = rect.adjusted(sideInset, 8, -sideInset, -2);
    QColor color = theme::secondaryText();
    if (model.kindAt(row) == RowKind::fixedHeader) {
        color = model.symbolColorAt(row);
        const QPixmap& icon = symbol(*model.symbolAt(row), color, painter->device()->devicePixelRatioF());
        const int iconSize = 12;
        painter->drawPixmap(QRect(content.left(), content.center().y() - iconSize / 2, iconSize, iconSize), icon);
        content.setLeft(content.left() + iconSize + 6);
    }
    painter->setFont(m_headerFont);
    painter->setPen(color);
    painter->drawText(content, Qt::AlignLeft | Qt::AlignVCenter,
                      m_headerMetrics.elidedText(model.textAt(row), Qt::ElideRight, content.width()));
}

void DiagnosticRowDelegate::paintDiagnostic(QPainter* painter, const QStyleOptionViewItem& option,
                                            const QModelIndex& index) const
{
    const DiagnosticListModel& model = listModel(index);
    const int row = index.row();
    const BuildDiagnostic* d = model.diagnosticAt(row);
    const QRect rect = option.rect;

    const QRect highlight = rect.adjusted(highlightInset, rowGap / 2, -highlightInset, -rowGap / 2);
    if (option.state & QStyle::State_Selected) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(theme::withOpacity(theme::cyan(), 0.22));
        painter->drawRoundedRect(highlight, 6, 6);
    } else if (option.state & QStyle::State_MouseOver) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(theme::white(0.035));
        painter->drawRoundedRect(highlight, 6, 6);
    }

    const QString badge = model.badgeAt(row);
    const int textLeft = rect.left() + sideInset + symbolFrame + columnSpacing;
    const int textWidth = messageWidth(rect.width(), badge);
    const int top = rect.top() + rowGap + rowPadding;
    const int lineHeight = m_messageMetrics.lineSpacing();
    const bool twoLines = messageAdvance(d->id, d->message) > textWidth;
    const int messageBlock = qMax((twoLines ? 2 : 1) * lineHeight, symbolSize);

    // Symbol, centred on the first line of the message.
    const QPixmap& icon = symbol(*model.symbolAt(row), model.symbolColorAt(row), painter->device()->devicePixelRatioF());
    painter->drawPixmap(QRect(rect.left() + sideInset + (symbolFrame - symbolSize) / 2,
                              top + (lineHeight - symbolSize) / 2, symbolSize, symbolSize),
                        icon);

    const int locationWidth = rect.right() - sideInset - textLeft;
    const RowText& text = rowText(*d, textWidth, twoLines, locationWidth);
    painter->setFont(m_messageFont);
    painter->setPen(theme::primaryText());
    painter->drawStaticText(QPointF(textLeft, top), text.first);
    if (twoLines)
        painter->drawStaticText(QPointF(textLeft, top + lineHeight), text.second);
    const int usedWidth = twoLines ? textWidth : qMin(text.firstWidth, textWidth);

    if (!badge.isEmpty()) {
        const QColor color = model.kindAt(row) == RowKind::fixedDiagnostic ? theme::green() : theme::cyan();
        const int width = badgeWidth(badge);
        const int height = m_badgeMetrics.height() + 2 * badgePaddingY;
        const QRect badgeRect(textLeft + usedWidth + badgeSpacing, top + (messageBlock - height) / 2, width, height);
        paintBadge(painter, badgeRect, badge, color);
    }

    painter->setFont(m_locationFont);
    painter->setPen(theme::secondaryText());
    painter->drawStaticText(QPointF(textLeft, top + messageBlock + lineSpacing), text.location);
}

const DiagnosticRowDelegate::RowText& DiagnosticRowDelegate::rowText(const BuildDiagnostic& d, int textWidth,
                                                                    bool twoLines, int locationWidth) const
{
    // Repaints (a selection moving, a scroll of a few rows) draw the same rows
    // again; keeping their laid-out text skips shaping it each time.
    if (RowText* cached = m_rowTexts.object(d.id)) {
        if (cached->textWidth == textWidth && cached->twoLines == twoLines && cached->locationWidth == locationWidth)
            return *cached;
    }
    auto* text = new RowText;
    text->textWidth = textWidth;
    text->twoLines = twoLines;
    text->locationWidth = locationWidth;
    const auto prepared = [](const QString& line, const QFont& font) {
        QStaticText result(line);
        result.setTextFormat(Qt::PlainText);
        result.prepare(QTransform(), font);
        return result;
    };
    QString message = displayText::bounded(d.message, displayText::lineLimit);
    if (!twoLines) {
        text->first = prepared(message, m_messageFont);
        text->firstWidth = int(std::ceil(text->first.size().width()));
    } else {
        message.replace(u'\n', QChar::LineSeparator);
        QTextLayout layout(message, m_messageFont);
        QTextOption textOption;
        textOption.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(textOption);
        layout.beginLayout();
        QTextLine first = layout.createLine();
        first.setLineWidth(textWidth);
        layout.endLayout();
        const qsizetype breakAt = first.textStart() + first.textLength();
        text->first = prepared(message.left(breakAt).trimmed(), m_messageFont);
        text->firstWidth = textWidth;
        // The second line takes the rest, cut short if it still does not fit.
        text->second = prepared(
            m_messageMetrics.elidedText(message.mid(breakAt).trimmed(), Qt::ElideRight, textWidth), m_messageFont);
    }
    text->location = prepared(m_locationMetrics.elidedText(d.locationLabel(), Qt::ElideMiddle, locationWidth),
                              m_locationFont);
    const RowText& result = *text;
    m_rowTexts.insert(d.id, text);
    return result;
}

void DiagnosticRowDelegate::paintBadge(QPainter* painter, const QRect& rect, const QString& badge,
                                       const QColor& color) const
{
    theme::paintRoundedPanel(*painter, QRectF(rect), rect.height() / 2.0, theme::withOpacity(color, 0.1),
                             theme::withOpacity(color, 0.2));
    painter->setFont(m_badgeFont);
    painter->setPen(color);
    painter->drawText(rect, Qt::AlignCenter, badge);
}

} // namespace corvane
