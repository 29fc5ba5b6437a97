#include "HistoryCard.h"

#include "Theme.h"

#include <QFontMetricsF>
#include <QPainter>

namespace corvane {

HistoryCard::HistoryCard(QWidget* parent) : QAbstractButton(parent)
{
    setFixedSize(170, 72);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
}

void HistoryCard::setSession(const BuildSession& session, bool isActive)
{
    // A captured build never changes, so the same build in the same state
    // needs neither new counts nor a repaint.
    if (session.id == m_session.id && isActive == m_isActive && !m_session.id.isNull())
        return;
    m_session = session;
    m_isActive = isActive;
    m_errorCount = session.errorCount();
    m_warningCount = session.warningCount();
    const QString time = theme::timeOfDay(session.startedAt.toDateTime());
    setAccessibleName(session.projectName.toUpper() + QStringLiteral(", ") + time + QStringLiteral(", ")
                      + summaryText(m_errorCount, m_warningCount));
    setToolTip(session.sourceName);
    update();
}

QString HistoryCard::summary() const
{
    return summaryText(m_errorCount, m_warningCount);
}

QString HistoryCard::summaryText(const BuildSession& session)
{
    return summaryText(session.errorCount(), session.warningCount());
}

QString HistoryCard::summaryText(qsizetype errors, qsizetype warnings)
{
    if (errors >= 1)
        return QString::number(errors) + QStringLiteral(" ERROR") + (errors == 1 ? QString() : QStringLiteral("S"));
    if (warnings >= 1)
        return QString::number(warnings) + QStringLiteral(" WARNING")
            + (warnings == 1 ? QString() : QStringLiteral("S"));
    return QStringLiteral("CLEAN");
}

QColor HistoryCard::statusColor(const BuildSession& session)
{
    return statusColor(session.errorCount(), session.warningCount());
}

QColor HistoryCard::statusColor(qsizetype errors, qsizetype warnings)
{
    if (errors >= 1)
        return theme::red();
    if (warnings > 0)
        return theme::orange();
    return theme::green();
}

void HistoryCard::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const QRectF bounds = rect();
    QColor fill = theme::white(m_isActive ? 0.075 : 0.025);
    if (!m_isActive && underMouse())
        fill = theme::white(0.05);
    QColor outline = m_isActive ? theme::withOpacity(theme::cyan(), 0.35) : theme::white(0.06);
    if (m_keyboardFocus->showsRing())
        outline = theme::withOpacity(theme::cyan(), 0.7);
    theme::paintRoundedPanel(painter, bounds, 10, fill, outline);

    const QColor status = statusColor(m_errorCount, m_warningCount);
    const QFont projectFont = theme::monospaced(9, QFont::Bold);
    const QFont timeFont = theme::monospaced(8);
    const QFont chipFont = theme::monospaced(8, QFont::DemiBold);
    const qreal line1 = QFontMetricsF(projectFont).height();
    const qreal line2 = QFontMetricsF(chipFont).height();
    const qreal line3 = line2;
    const qreal spacing = 7;
    const QRectF content = bounds.adjusted(10, 10, -10, -10);
    // The three lines are centred in the card's fixed frame.
    qreal y = content.top() + (content.height() - (line1 + line2 + line3 + 2 * spacing)) / 2.0;

    // Line 1: status dot, project, time at the trailing edge.
    painter.setPen(Qt::NoPen);
    painter.setBrush(status);
    painter.drawEllipse(QRectF(content.left(), y + line1 / 2 - 3, 6, 6));
    const QString time = theme::timeOfDay(m_session.startedAt.toDateTime());
    const qreal timeWidth = QFontMetricsF(timeFont).horizontalAdvance(time);
    painter.setFont(timeFont);
    painter.setPen(theme::tertiaryText());
    painter.drawText(QRectF(content.right() - timeWidth - 1, y, timeWidth + 1, line1), Qt::AlignRight | Qt::AlignVCenter,
                     time);
    const qreal projectLeft = content.left() + 6 + 7;
    const qreal projectWidth = content.right() - timeWidth - 7 - projectLeft;
    painter.setFont(projectFont);
    painter.setPen(theme::primaryText());
    painter.drawText(QRectF(projectLeft, y, projectWidth, line1), Qt::AlignLeft | Qt::AlignVCenter,
                     QFontMetricsF(projectFont).elidedText(m_session.projectName.toUpper(), Qt::ElideRight,
                                                           projectWidth));
    y += line1 + spacing;

    // Line 2: compact counters.
    struct Chip {
        theme::Symbol symbol;
        qsizetype count;
        QColor color;
    };
    QList<Chip> chips{{theme::Symbol::xmark, m_errorCount, theme::red()},
                      {theme::Symbol::exclamationmark, m_warningCount, theme::orange()}};
    if (m_session.comparison.hasBaseline) {
        chips.append({theme::Symbol::sparkles, m_session.comparison.newDiagnosticIDs.size(), theme::cyan()});
        chips.append({theme::Symbol::checkmark, m_session.comparison.fixedDiagnostics.size(), theme::green()});
    }
    qreal x = content.left();
    painter.setFont(chipFont);
    const qreal symbolSize = 9;
    for (const Chip& chip : chips) {
        const QColor colour = theme::counterColor(chip.count, chip.color);
        theme::drawSymbol(painter, chip.symbol, colour, QRectF(x, y + (line2 - symbolSize) / 2, symbolSize, symbolSize));
        x += symbolSize + 3;
        const QString number = QString::number(chip.count);
        const qreal w = QFontMetricsF(chipFont).horizontalAdvance(number);
        painter.setPen(colour);
        painter.drawText(QRectF(x, y, w + 1, line2), Qt::AlignLeft | Qt::AlignVCenter, number);
        x += w + 10;
    }
    y += line2 + spacing;

    // Line 3: the summary in the status colour.
    painter.setPen(status);
    painter.drawText(QRectF(content.left(), y, content.width(), line3), Qt::AlignLeft | Qt::AlignVCenter,
                     summaryText(m_errorCount, m_warningCount));
}

} // namespace corvane
