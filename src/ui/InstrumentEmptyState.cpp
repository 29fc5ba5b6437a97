#include "InstrumentEmptyState.h"

#include "RingEmblem.h"
#include "Theme.h"

#include <QFontMetrics>
#include <QLabel>
#include <QVBoxLayout>

namespace corvane {

namespace {

// Rich text is the only way a QLabel spaces its lines; the message's own line
// breaks become paragraph breaks with the same spacing.
QString messageHtml(const QString& message, int lineHeight)
{
    QString html;
    const QStringList lines = message.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        html += QStringLiteral("<p style=\"margin:0; line-height:%1px;\">").arg(lineHeight) + line.toHtmlEscaped()
            + QStringLiteral("</p>");
    }
    return html;
}

} // namespace

InstrumentEmptyState::InstrumentEmptyState(theme::Symbol symbol, const QString& title, const QString& message,
                                           const QColor& accent, QWidget* parent)
    : QWidget(parent), m_title(new QLabel(title, this)), m_message(new QLabel(this)), m_messageText(message)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    RingEmblem::Style emblemStyle;
    emblemStyle.symbol = symbol;
    emblemStyle.accent = accent;
    auto* emblem = new RingEmblem(emblemStyle, this);

    m_title->setObjectName(QStringLiteral("emptyStateTitle"));
    m_title->setFont(theme::monospaced(16, QFont::Bold, 0.9));
    m_title->setAlignment(Qt::AlignCenter);
    theme::setForeground(*m_title, Qt::white);

    const QFont messageFont = theme::font(13);
    m_message->setObjectName(QStringLiteral("emptyStateMessage"));
    m_message->setFont(messageFont);
    m_message->setTextFormat(Qt::RichText);
    m_message->setText(messageHtml(message, QFontMetrics(messageFont).height() + 3));
    m_message->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    m_message->setWordWrap(true);
    theme::setForeground(*m_message, theme::secondaryText());
    m_message->setAccessibleName(message);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 0, 24, 0);
    layout->setSpacing(18);
    layout->addStretch(1);
    layout->addWidget(emblem, 0, Qt::AlignHCenter);
    layout->addWidget(m_title);
    layout->addWidget(m_message);
    layout->addStretch(1);
}

QString InstrumentEmptyState::title() const
{
    return m_title->text();
}

QString InstrumentEmptyState::message() const
{
    return m_messageText;
}

} // namespace corvane
