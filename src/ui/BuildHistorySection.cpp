#include "BuildHistorySection.h"

#include "HistoryCard.h"
#include "HistoryPager.h"
#include "StoreRefresh.h"
#include "Theme.h"

#include <QEasingCurve>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QVariantAnimation>
#include <QScrollArea>
#include <QScrollBar>
#include <QWheelEvent>
#include <QToolButton>
#include <QVBoxLayout>

namespace corvane {

namespace {

constexpr int animationMilliseconds = 160;
constexpr int cardsRowHeight = 72 + 10; // cards and their bottom padding
constexpr int pageSlide = 28;            // how far a new page slides in

QToolButton* plainButton(const QString& objectName, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setObjectName(objectName);
    button->setAutoRaise(true);
    button->setCursor(Qt::PointingHandCursor);
    button->setToolButtonStyle(Qt::ToolButtonIconOnly);
    return button;
}

QIcon pagerIcon(theme::Symbol symbol)
{
    QIcon icon;
    for (qreal ratio : {1.0, 2.0}) {
        icon.addPixmap(theme::symbolPixmap(symbol, theme::secondaryText(), 10, ratio), QIcon::Normal);
        icon.addPixmap(theme::symbolPixmap(symbol, theme::white(0.18), 10, ratio), QIcon::Disabled);
    }
    return icon;
}

// The row of cards: four cards are wider than the narrowest sidebar, so the
// row scrolls sideways, by wheel too, rather than squeezing them.
class CardStrip : public QScrollArea {
public:
    explicit CardStrip(QWidget* parent) : QScrollArea(parent)
    {
        setFrameShape(QFrame::NoFrame);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        // The cards are the tab stops, not the strip around them.
        setFocusPolicy(Qt::NoFocus);
        setWidgetResizable(true);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
        viewport()->setAutoFillBackground(false);
    }

protected:
    void wheelEvent(QWheelEvent* event) override
    {
        const QPoint delta = event->angleDelta();
        const int step = qAbs(delta.x()) > qAbs(delta.y()) ? delta.x() : delta.y();
        horizontalScrollBar()->setValue(horizontalScrollBar()->value() - step / 2);
        event->accept();
    }
};

} // namespace

BuildHistorySection::BuildHistorySection(BuildStore& store, QWidget* parent)
    : QWidget(parent),
      m_store(store),
      m_refresh(new StoreRefresh(store, *this, [this](const auto& changed) { refresh(changed); })),
      m_toggle(plainButton(QStringLiteral("historyToggle"), this)),
      m_pager(new QWidget(this)),
      m_newer(plainButton(QStringLiteral("newerBuildsButton"), m_pager)),
      m_range(new QLabel(m_pager)),
      m_older(plainButton(QStringLiteral("olderBuildsButton"), m_pager)),
      m_count(new QLabel(this)),
      m_cardsArea(new CardStrip(this)),
      m_cards(new QWidget(m_cardsArea)),
      m_cardsAnimation(new QVariantAnimation(this)),
      m_pageAnimation(new QVariantAnimation(this))
{
    setObjectName(QStringLiteral("buildHistory"));
    m_pager->setObjectName(QStringLiteral("historyPager"));
    m_range->setObjectName(QStringLiteral("historyRange"));
    m_count->setObjectName(QStringLiteral("historyCount"));
    m_cardsArea->setObjectName(QStringLiteral("historyCards"));

    m_toggle->setFixedSize(16, 22);
    m_toggle->setIconSize(QSize(9, 9));
    m_toggle->setAccessibleName(QStringLiteral("Build history"));
    connect(m_toggle, &QToolButton::clicked, this, [this] { setExpanded(!m_expanded); });

    auto* title = new QLabel(QStringLiteral("BUILD HISTORY"), this);
    title->setFont(theme::monospaced(10, QFont::Bold, 0.6));
    theme::setForeground(*title, theme::secondaryText());

    const QFont small = theme::monospaced(9, QFont::DemiBold);
    for (QLabel* label : {m_range, m_count}) {
        label->setFont(small);
        theme::setForeground(*label, theme::tertiaryText());
    }
    m_range->setMinimumWidth(62);
    m_range->setAlignment(Qt::AlignCenter);

    m_newer->setIcon(pagerIcon(theme::Symbol::chevronLeft));
    m_newer->setToolTip(QStringLiteral("Newer builds"));
    m_newer->setAccessibleName(QStringLiteral("Newer builds"));
    m_older->setIcon(pagerIcon(theme::Symbol::chevronRight));
    m_older->setToolTip(QStringLiteral("Older builds"));
    m_older->setAccessibleName(QStringLiteral("Older builds"));
    for (QToolButton* button : {m_newer, m_older}) {
        button->setFixedSize(24, 22);
        button->setIconSize(QSize(10, 10));
    }
    connect(m_newer, &QToolButton::clicked, this, [this] { pageTo(HistoryPager::newer(m_startIndex)); });
    connect(m_older, &QToolButton::clicked, this,
            [this] { pageTo(HistoryPager::older(m_store.visibleSessions().size(), m_startIndex)); });

    connect(m_newer, &QToolButton::clicked, this, [this] { slideCards(-1); });
    connect(m_older, &QToolButton::clicked, this, [this] { slideCards(1); });

    auto* pagerLayout = new QHBoxLayout(m_pager);
    pagerLayout->setContentsMargins(0, 0, 0, 0);
    pagerLayout->setSpacing(0);
    pagerLayout->addWidget(m_newer);
    pagerLayout->addWidget(m_range);
    pagerLayout->addWidget(m_older);

    auto* header = new QWidget(this);
    header->setFixedHeight(32);
    auto* headerLayout = new QHBoxLayout(header);
    headerLayout->setContentsMargins(14, 0, 14, 0);
    headerLayout->setSpacing(8);
    headerLayout->addWidget(m_toggle);
    headerLayout->addWidget(title);
    headerLayout->addStretch(1);
    headerLayout->addWidget(m_pager);
    headerLayout->addWidget(m_count);

    auto* cardsLayout = new QHBoxLayout(m_cards);
    cardsLayout->setContentsMargins(12, 0, 12, 10);
    cardsLayout->setSpacing(8);
    for (HistoryCard*& card : m_cardViews) {
        card = new HistoryCard(m_cards);
        card->setObjectName(QStringLiteral("historyCard"));
        cardsLayout->addWidget(card);
        connect(card, &HistoryCard::clicked, this, [this, card] {
            for (const BuildSession& session : m_store.sessions()) {
                if (session.id == card->sessionID()) {
                    m_store.selectSession(session);
                    return;
                }
            }
        });
    }
    cardsLayout->addStretch(1);
    m_cards->setAutoFillBackground(false);
    m_cardsArea->setWidget(m_cards);
    // Only while a new page comes in; an effect costs every repaint.
    m_cardsOpacity = new QGraphicsOpacityEffect(m_cards);
    m_cardsOpacity->setEnabled(false);
    m_cards->setGraphicsEffect(m_cardsOpacity);
    m_cardsArea->setFixedHeight(cardsRowHeight);

    m_cardsAnimation->setDuration(animationMilliseconds);
    m_cardsAnimation->setEasingCurve(QEasingCurve::InOutQuad);
    connect(m_cardsAnimation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { m_cardsArea->setFixedHeight(value.toInt()); });
    connect(m_cardsAnimation, &QVariantAnimation::finished, this, [this] {
        if (!m_expanded)
            m_cardsArea->hide();
    });

    m_pageAnimation->setObjectName(QStringLiteral("historyPageAnimation"));
    m_pageAnimation->setDuration(animationMilliseconds);
    m_pageAnimation->setEasingCurve(QEasingCurve::InOutQuad);
    connect(m_pageAnimation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        const double progress = value.toDouble();
        m_cards->move(int((1.0 - progress) * m_slideDirection * pageSlide)
                          - m_cardsArea->horizontalScrollBar()->value(),
                      m_cards->y());
        m_cardsOpacity->setOpacity(progress);
    });
    connect(m_pageAnimation, &QVariantAnimation::finished, this, [this] { m_cardsOpacity->setEnabled(false); });

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 1); // room for the bottom hairline
    layout->setSpacing(0);
    layout->addWidget(header);
    layout->addWidget(m_cardsArea);

    refresh();
}

void BuildHistorySection::refresh(const QSet<BuildStore::Field>& changed)
{
    // Back to the newest builds when a build arrived or left (also at the
    // history's limit, where the count stays the same), or the focus moved.
    if (changed.contains(BuildStore::Field::sessions) || changed.contains(BuildStore::Field::focusedProjectName))
        m_startIndex = 0;
    const QList<BuildSession> sessions = m_store.visibleSessions();
    const qsizetype count = sessions.size();

    // Setting an icon repaints the button even when it is the same one.
    if (m_toggleShowsExpanded != m_expanded) {
        m_toggleShowsExpanded = m_expanded;
        m_toggle->setIcon(theme::symbolIcon(m_expanded ? theme::Symbol::chevronDown
                                                       : theme::Symbol::chevronRight,
                                            theme::secondaryText(), 9));
    }
    const bool paged = m_expanded && HistoryPager::isNeeded(count);
    m_pager->setVisible(paged);
    m_count->setVisible(!paged);
    m_count->setText(QString::number(count));
    m_range->setText(HistoryPager::rangeText(count, m_startIndex));
    m_newer->setEnabled(HistoryPager::canGoNewer(m_startIndex));
    m_older->setEnabled(HistoryPager::canGoOlder(count, m_startIndex));

    const HistoryPager::Range page = HistoryPager::page(count, m_startIndex);
    const std::optional<BuildSession> active = m_store.activeSession();
    for (qsizetype i = 0; i < qsizetype(m_cardViews.size()); ++i) {
        HistoryCard* card = m_cardViews[size_t(i)];
        const qsizetype index = page.start + i;
        if (index < page.end) {
            const BuildSession& session = sessions[index];
            card->setSession(session, active && active->id == session.id);
            card->show();
        } else {
            card->hide();
        }
    }
}

void BuildHistorySection::pageTo(qsizetype newStart)
{
    m_startIndex = newStart;
    m_cardsArea->horizontalScrollBar()->setValue(0);
    refresh();
}

void BuildHistorySection::setExpanded(bool expanded)
{
    if (expanded == m_expanded)
        return;
    m_expanded = expanded;
    animateCards(expanded);
    refresh();
}

void BuildHistorySection::animateCards(bool show)
{
    m_cardsAnimation->stop();
    m_cardsAnimation->setStartValue(m_cardsArea->isVisible() ? m_cardsArea->height() : 0);
    m_cardsAnimation->setEndValue(show ? cardsRowHeight : 0);
    if (show)
        m_cardsArea->show();
    m_cardsAnimation->start();
}

void BuildHistorySection::slideCards(int direction)
{
    m_pageAnimation->stop();
    m_slideDirection = direction;
    m_pageAnimation->setStartValue(0.0);
    m_pageAnimation->setEndValue(1.0);
    m_cardsOpacity->setEnabled(true);
    m_pageAnimation->start();
}

void BuildHistorySection::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), theme::historyShade());
    painter.fillRect(QRect(0, height() - 1, width(), 1), theme::edge());
}

} // namespace corvane
