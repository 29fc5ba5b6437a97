#include "DiagnosticDetailView.h"

#include "DisplayText.h"
#include "StoreRefresh.h"
#include "Theme.h"
#include "UserCommands.h"

#include <QAbstractTextDocumentLayout>
#include <qdrawutil.h>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QTextDocumentFragment>
#include <QTextEdit>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <cmath>

namespace corvane {

namespace {

QLabel* caption(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(theme::monospaced(10, QFont::Bold, 0.8));
    theme::setForeground(*label, theme::secondaryText());
    return label;
}

// A status tag of the header: bold capitals on a faint capsule of its colour.
class CapsuleTag : public QLabel {
public:
    CapsuleTag(const QString& text, const QColor& color, QWidget* parent)
        : QLabel(text, parent)
        , m_color(color)
    {
        setFont(theme::monospaced(9, QFont::Bold));
        setContentsMargins(7, 3, 7, 3);
        theme::setForeground(*this, color);
    }

protected:
    void paintEvent(QPaintEvent* event) override
    {
        {
            QPainter painter(this);
            theme::paintRoundedPanel(painter, QRectF(rect()), height() / 2.0, theme::withOpacity(m_color, 0.1),
                                     Qt::transparent);
        }
        QLabel::paintEvent(event);
    }

private:
    QColor m_color;
};

// A rounded rectangle with a fill and a one-pixel outline behind its children.
class RoundedBox : public QWidget {
public:
    RoundedBox(QColor fill, QColor outline, qreal radius, QWidget* parent)
        : QWidget(parent)
        , m_fill(fill)
        , m_outline(outline)
        , m_radius(radius)
    {
    }

protected:
    // The cards span the column, and antialiasing a large rounded outline
    // is a good part of a repaint. The shape is drawn once, small, and its
    // edges and middle are stretched to the card's size: they are plain
    // colour, so stretching them changes nothing.
    void paintEvent(QPaintEvent*) override
    {
        const qreal ratio = devicePixelRatioF();
        const int corner = int(std::ceil(m_radius)) + 1;
        const int side = 2 * corner + 1;
        if (m_slices.isNull() || !qFuzzyCompare(m_slices.devicePixelRatio(), ratio)) {
            m_slices = QPixmap(QSize(side, side) * ratio);
            m_slices.setDevicePixelRatio(ratio);
            m_slices.fill(Qt::transparent);
            QPainter painter(&m_slices);
            theme::paintRoundedPanel(painter, QRectF(0, 0, side, side), m_radius, m_fill, m_outline);
        }
        QPainter painter(this);
        if (width() < side || height() < side) {
            theme::paintRoundedPanel(painter, QRectF(rect()), m_radius, m_fill, m_outline);
            return;
        }
        const QMargins margins(corner, corner, corner, corner);
        qDrawBorderPixmap(&painter, rect(), margins, m_slices);
    }

private:
    QColor m_fill;
    QColor m_outline;
    qreal m_radius;
    QPixmap m_slices;
};

// The action bar's shade with a hairline along its top edge.
class ActionBar : public QWidget {
public:
    ActionBar(QColor edge, QWidget* parent)
        : QWidget(parent)
        , m_edge(edge)
    {
        setFixedHeight(58);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), theme::barShade());
        painter.fillRect(QRect(0, 0, width(), 1), m_edge);
    }

private:
    QColor m_edge;
};

// Read-only text the user can select and copy, as tall as its wrapped
// content. A label would do, but a label breaks lines only between words,
// and raw compiler output is full of long paths that must wrap anywhere.
class SelectableText : public QTextEdit {
public:
    SelectableText(const QFont& font, const QColor& color, QWidget* parent)
        : QTextEdit(parent)
    {
        setReadOnly(true);
        setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
        setFrameShape(QFrame::NoFrame);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setLineWrapMode(QTextEdit::WidgetWidth);
        setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        setFont(font);
        document()->setDocumentMargin(0);
        QPalette palette = this->palette();
        palette.setColor(QPalette::Base, Qt::transparent);
        palette.setColor(QPalette::Text, color);
        setPalette(palette);
        viewport()->setAutoFillBackground(false);
        setFixedHeight(QFontMetrics(font).lineSpacing());
        connect(document()->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
                [this](const QSizeF& size) { setFixedHeight(int(std::ceil(size.height()))); });
    }

protected:
    // A selection copies the text as it was, without the hints that let it wrap.
    QMimeData* createMimeDataFromSelection() const override
    {
        auto* data = new QMimeData;
        data->setText(displayText::withoutBreakHints(textCursor().selection().toPlainText()));
        return data;
    }

    // Scrolling belongs to the page around it.
    void wheelEvent(QWheelEvent* event) override { event->ignore(); }
};

QPushButton* actionButton(const QString& text, theme::Symbol symbol, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setIcon(theme::symbolIcon(symbol, theme::primaryText(), 14));
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

} // namespace

DiagnosticDetailView::DiagnosticDetailView(BuildStore& store, DesktopPlatform& platform, QColor card, QColor edge,
                                           QWidget* parent)
    : QWidget(parent)
    , m_store(store)
    , m_platform(platform)
    , m_card(card)
    , m_edge(edge)
{
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->viewport()->setAutoFillBackground(false);
    // The texts and buttons inside are the tab stops, not the page.
    scroll->setFocusPolicy(Qt::NoFocus);

    auto* content = new QWidget(scroll);
    content->setAutoFillBackground(false);
    auto* contentLayout = new QVBoxLayout(content);
    contentLayout->setContentsMargins(26, 26, 26, 26);
    contentLayout->setSpacing(24);

    // Header: severity, tags, file name and location.
    auto* header = new QVBoxLayout;
    header->setSpacing(12);
    auto* tagRow = new QHBoxLayout;
    tagRow->setSpacing(9);
    m_severitySymbol = new QLabel(content);
    m_severitySymbol->setFixedSize(16, 16);
    m_severityWord = new QLabel(content);
    m_severityWord->setFont(theme::monospaced(10, QFont::Bold, 0.8));
    m_newTag = new CapsuleTag(QStringLiteral("NEW SINCE LAST BUILD"), theme::cyan(), content);
    m_pinnedTag = new CapsuleTag(QStringLiteral("PINNED"), theme::yellow(), content);
    m_ignoredTag = new CapsuleTag(QStringLiteral("IGNORED"), theme::secondaryText(), content);
    for (QWidget* widget : {static_cast<QWidget*>(m_severitySymbol), static_cast<QWidget*>(m_severityWord),
                            static_cast<QWidget*>(m_newTag), static_cast<QWidget*>(m_pinnedTag),
                            static_cast<QWidget*>(m_ignoredTag)})
        tagRow->addWidget(widget, 0, Qt::AlignVCenter);
    tagRow->addStretch(1);
    header->addLayout(tagRow);
    m_title = new QLabel(content);
    m_title->setFont(theme::font(27, QFont::DemiBold, theme::FontDesign::rounded));
    m_title->setWordWrap(true);
    theme::setForeground(*m_title, theme::primaryText());
    header->addWidget(m_title);
    m_location = new QLabel(content);
    m_location->setFont(theme::monospaced(12));
    m_location->setWordWrap(true);
    m_location->setTextInteractionFlags(Qt::TextSelectableByMouse);
    theme::setForeground(*m_location, theme::secondaryText());
    header->addWidget(m_location);
    contentLayout->addLayout(header);

    // Pin and ignore, for warnings only.
    m_warningActions = new RoundedBox(theme::withOpacity(theme::orange(), 0.055),
                                      theme::withOpacity(theme::orange(), 0.16), 10, content);
    auto* actionsLayout = new QHBoxLayout(m_warningActions);
    actionsLayout->setContentsMargins(12, 12, 12, 12);
    actionsLayout->setSpacing(10);
    m_pinButton = new QPushButton(m_warningActions);
    m_ignoreButton = new QPushButton(m_warningActions);
    actionsLayout->addWidget(m_pinButton);
    actionsLayout->addWidget(m_ignoreButton);
    actionsLayout->addStretch(1);
    contentLayout->addWidget(m_warningActions);

    const auto addCard = [&](const QString& title, QTextEdit* text, const QColor& fill) {
        auto* section = new QVBoxLayout;
        section->setSpacing(10);
        QLabel* label = caption(title, content);
        section->addWidget(label);
        // The text lies over the card rather than inside it: as siblings,
        // the caption names the text for assistive tools.
        auto* card = new RoundedBox(fill, m_edge, 12, content);
        auto* inset = new QVBoxLayout;
        inset->setContentsMargins(16, 16, 16, 16);
        inset->addWidget(text);
        auto* cell = new QGridLayout;
        cell->addWidget(card, 0, 0);
        cell->addLayout(inset, 0, 0);
        text->raise();
        label->setBuddy(text);
        section->addLayout(cell);
        contentLayout->addLayout(section);
    };
    m_message = new SelectableText(theme::font(16), theme::primaryText(), content);
    m_message->setObjectName(QStringLiteral("diagnosticMessage"));
    addCard(QStringLiteral("DIAGNOSTIC"), m_message, m_card);
    m_rawText = new SelectableText(theme::monospaced(12), theme::white(0.78), content);
    m_rawText->setObjectName(QStringLiteral("rawOutput"));
    addCard(QStringLiteral("RAW BUILD OUTPUT"), m_rawText, theme::rawOutputShade());
    contentLayout->addStretch(1);
    scroll->setWidget(content);

    auto* bar = new ActionBar(m_edge, this);
    auto* barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(16, 0, 16, 0);
    barLayout->setSpacing(10);
    m_openButton = actionButton(QStringLiteral("Open in Xcode"), theme::Symbol::arrowUpForwardSquare, bar);
    m_copyCleanButton = actionButton(QStringLiteral("Copy Clean Error"), theme::Symbol::docOnDoc, bar);
    m_copyChatGPTButton = actionButton(QStringLiteral("Copy for ChatGPT"), theme::Symbol::textBubble, bar);
    const QKeySequence copyShortcut(QStringLiteral("Ctrl+Shift+C"));
    m_copyChatGPTButton->setToolTip(copyShortcut.toString(QKeySequence::NativeText));
    barLayout->addWidget(m_openButton, 0, Qt::AlignVCenter);
    barLayout->addStretch(1);
    barLayout->addWidget(m_copyCleanButton, 0, Qt::AlignVCenter);
    barLayout->addWidget(m_copyChatGPTButton, 0, Qt::AlignVCenter);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(scroll, 1);
    layout->addWidget(bar);

    // A window shortcut rather than the button's own: a button's shortcut
    // clicks it only after a short animation, and the copy should be done
    // by the time the keys are released.
    auto* shortcut = new QShortcut(copyShortcut, this);
    shortcut->setContext(Qt::WindowShortcut);
    connect(shortcut, &QShortcut::activated, this, &DiagnosticDetailView::copyForChatGPT);

    connect(m_pinButton, &QPushButton::clicked, this, [this] { m_store.togglePin(m_diagnostic); });
    connect(m_ignoreButton, &QPushButton::clicked, this, [this] { m_store.toggleIgnore(m_diagnostic); });
    connect(m_openButton, &QPushButton::clicked, this, [this] { openInXcode(m_diagnostic, m_platform); });
    connect(m_copyCleanButton, &QPushButton::clicked, this, &DiagnosticDetailView::copyCleanError);
    connect(m_copyChatGPTButton, &QPushButton::clicked, this, &DiagnosticDetailView::copyForChatGPT);
    using Field = BuildStore::Field;
    new StoreRefresh(store, *this, [this](const auto&) { refreshStatus(); },
                     {Field::sessions, Field::activeSessionID, Field::pinnedDiagnostics, Field::ignoredDiagnostics});

    setDiagnostic(BuildDiagnostic{});
}

const BuildDiagnostic& DiagnosticDetailView::diagnostic() const
{
    return m_diagnostic;
}

void DiagnosticDetailView::setDiagnostic(const BuildDiagnostic& diagnostic)
{
    const bool same = diagnostic == m_diagnostic && !m_title->text().isEmpty();
    m_diagnostic = diagnostic;
    if (!same) {
        const theme::SeverityStyle style = theme::severityStyle(diagnostic.severity);
        m_severitySymbol->setPixmap(theme::symbolPixmap(style.symbol, style.color, 16, devicePixelRatioF()));
        m_severityWord->setText(rawValue(diagnostic.severity).toUpper());
        theme::setForeground(*m_severityWord, style.color);
        m_title->setText(displayText::bounded(diagnostic.diagnosticFileName(), displayText::lineLimit));
        m_location->setText(displayText::bounded(diagnostic.locationLabel(), displayText::lineLimit));
        m_message->setPlainText(
            displayText::withBreakHints(displayText::bounded(diagnostic.message, displayText::cardLimit)));
        m_rawText->setPlainText(
            displayText::withBreakHints(displayText::bounded(diagnostic.rawText, displayText::cardLimit)));
        m_warningActions->setVisible(diagnostic.severity == DiagnosticSeverity::warning);
        m_openButton->setEnabled(diagnostic.filePath.has_value());
    }
    refreshStatus();
}

void DiagnosticDetailView::refreshStatus()
{
    const bool pinned = m_store.isPinned(m_diagnostic);
    const bool ignored = m_store.isIgnored(m_diagnostic);
    m_newTag->setVisible(m_store.activeComparison().newDiagnosticIDs.contains(m_diagnostic.id));
    m_pinnedTag->setVisible(pinned);
    m_ignoredTag->setVisible(ignored);

    const auto label = [](QPushButton* button, const QString& text, theme::Symbol symbol) {
        if (button->text() == text)
            return;
        button->setText(text);
        button->setIcon(theme::symbolIcon(symbol, theme::primaryText(), 14));
    };
    if (pinned)
        label(m_pinButton, QStringLiteral("Unpin Warning"), theme::Symbol::pinSlashFill);
    else
        label(m_pinButton, QStringLiteral("Pin Warning"), theme::Symbol::pinFill);
    if (ignored)
        label(m_ignoreButton, QStringLiteral("Restore Warning"), theme::Symbol::eyeFill);
    else
        label(m_ignoreButton, QStringLiteral("Ignore Warning"), theme::Symbol::eyeSlashFill);
}

void DiagnosticDetailView::copyCleanError()
{
    copyToPasteboard(m_diagnostic.cleanErrorText(), m_platform);
}

void DiagnosticDetailView::copyForChatGPT()
{
    copyToPasteboard(m_diagnostic.chatGPTPrompt(), m_platform);
}

} // namespace corvane
