#include "CountChip.h"
#include "HistoryCard.h"
#include "HistoryPager.h"
#include "ShellFixtures.h"
#include "Theme.h"

#include <QTest>
#include <QVariantAnimation>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

const QString range = QStringLiteral("historyRange");
const QString older = QStringLiteral("olderBuildsButton");
const QString newer = QStringLiteral("newerBuildsButton");

// Builds of one project; each differs from the one before.
void captureBuilds(WindowFixture& f, int count, const QString& project = QStringLiteral("ExampleApp"))
{
    for (int i = 0; i < count; ++i)
        f.capture(project, {warning(f.builds + 1)});
}

QList<HistoryCard*> visibleCards(const WindowFixture& f)
{
    QList<HistoryCard*> cards;
    for (HistoryCard* card : f.window->findChildren<HistoryCard*>()) {
        if (card->isVisibleTo(f.window.get()))
            cards.append(card);
    }
    return cards;
}

bool enabled(const WindowFixture& f, const QString& name)
{
    return f.find<QWidget>(name)->isEnabled();
}

BuildSession sessionWith(int errors, int warnings, int notes)
{
    BuildSession session;
    const std::pair<DiagnosticSeverity, int> counts[] = {
        {DiagnosticSeverity::error, errors}, {DiagnosticSeverity::warning, warnings}, {DiagnosticSeverity::note, notes}};
    for (const auto& [severity, n] : counts) {
        for (int i = 0; i < n; ++i)
            session.diagnostics.append({QUuid::createUuid(), severity, QStringLiteral("m"), {}, {}, {}, {}, {}});
    }
    return session;
}

} // namespace

class BuildHistoryTest : public OpenWindow {};

TEST_F(BuildHistoryTest, PagerAppearsOnlyBeyondFourSessionsAndStopsAtTheEnds)
{
    EXPECT_EQ(text(QStringLiteral("historyCount")), QStringLiteral("0"));
    EXPECT_FALSE(shows(QStringLiteral("historyPager")));

    captureBuilds(*this, 4);
    EXPECT_FALSE(shows(QStringLiteral("historyPager")));
    EXPECT_TRUE(shows(QStringLiteral("historyCount")));
    EXPECT_EQ(text(QStringLiteral("historyCount")), QStringLiteral("4"));
    EXPECT_EQ(visibleCards(*this).size(), 4);

    captureBuilds(*this, 1);
    EXPECT_TRUE(shows(QStringLiteral("historyPager")));
    EXPECT_FALSE(shows(QStringLiteral("historyCount")));
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 5"));
    EXPECT_FALSE(enabled(*this, newer));
    EXPECT_TRUE(enabled(*this, older));
    EXPECT_EQ(find<QWidget>(newer)->toolTip(), QStringLiteral("Newer builds"));
    EXPECT_EQ(find<QWidget>(older)->toolTip(), QStringLiteral("Older builds"));

    click(older);
    EXPECT_EQ(text(range), QStringLiteral("2\u20135 / 5"));
    EXPECT_TRUE(enabled(*this, newer));
    EXPECT_FALSE(enabled(*this, older));
    // The last page is full: the oldest four builds.
    const QList<HistoryCard*> cards = visibleCards(*this);
    ASSERT_EQ(cards.size(), 4);
    EXPECT_EQ(cards.last()->sessionID(), store->visibleSessions().last().id);

    click(newer);
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 5"));
}

TEST_F(BuildHistoryTest, PagingSlidesTheNewPageInWithinAnEaseInOutAnimation)
{
    captureBuilds(*this, 6);
    auto* animation = find<QVariantAnimation>(QStringLiteral("historyPageAnimation"));
    ASSERT_NE(animation, nullptr);
    EXPECT_EQ(animation->duration(), 160);
    EXPECT_EQ(animation->easingCurve().type(), QEasingCurve::InOutQuad);

    const QWidget* row = visibleCards(*this).first()->parentWidget();
    for (const QString& button : {older, newer}) {
        click(button);
        EXPECT_EQ(animation->state(), QAbstractAnimation::Running);
        // Older builds come in from the right, newer ones from the left.
        animation->setCurrentTime(80);
        EXPECT_EQ(row->x() > 0, button == older) << row->x();
        EXPECT_TRUE(QTest::qWaitFor([&] { return animation->state() == QAbstractAnimation::Stopped; }, 1000));
        EXPECT_EQ(row->x(), 0);
    }
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 6"));
}

TEST(BuildHistory, PageArithmeticClampsAStartLeftBeyondTheEnd)
{
    const auto page = HistoryPager::page(3, 9);
    EXPECT_EQ(page.start, 2);
    EXPECT_EQ(page.end, 3);
    EXPECT_EQ(HistoryPager::page(0, 0).end, 0);
}

TEST_F(BuildHistoryTest, PagingReturnsToTheNewestBuildsWhenSessionsOrFocusChange)
{
    captureBuilds(*this, 6, QStringLiteral("Atlas"));
    captureBuilds(*this, 1, QStringLiteral("Weather"));
    click(older);
    ASSERT_EQ(text(range), QStringLiteral("4\u20137 / 7"));

    // Changes that leave the number of sessions and the focus alone keep the page.
    store->setSearchText(QStringLiteral("suspicious"));
    store->setSeverityFilter({DiagnosticSeverity::warning});
    settle();
    EXPECT_EQ(text(range), QStringLiteral("4\u20137 / 7"));

    captureBuilds(*this, 1, QStringLiteral("Weather"));
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 8"));

    click(older);
    trigger(QStringLiteral("projectFocusMenu"), QStringLiteral("Atlas"));
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 6"));

    click(older);
    ASSERT_EQ(text(range), QStringLiteral("3\u20136 / 6"));
    trigger(QStringLiteral("optionsMenu"), QStringLiteral("Clear Build History"));
    EXPECT_FALSE(shows(QStringLiteral("historyPager")));
    EXPECT_EQ(text(QStringLiteral("historyCount")), QStringLiteral("0"));
    captureBuilds(*this, 5);
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 5"));
}

TEST_F(BuildHistoryTest, ACaptureAtTheHistoryLimitReturnsToTheNewestBuilds)
{
    captureBuilds(*this, historyLimit);
    click(older);
    ASSERT_EQ(text(range), QStringLiteral("5\u20138 / 10"));
    captureBuilds(*this, 1);
    ASSERT_EQ(store->sessions().size(), historyLimit);
    EXPECT_EQ(text(range), QStringLiteral("1\u20134 / 10"));
}

TEST_F(BuildHistoryTest, CollapsingHidesCardsAndPagerAndShowsTheCount)
{
    window->show();
    captureBuilds(*this, 6);
    click(QStringLiteral("historyToggle"));
    EXPECT_TRUE(waitUntil([&] { return visibleCards(*this).isEmpty(); }));
    EXPECT_FALSE(shows(QStringLiteral("historyPager")));
    EXPECT_TRUE(shows(QStringLiteral("historyCount")));
    EXPECT_EQ(text(QStringLiteral("historyCount")), QStringLiteral("6"));

    click(QStringLiteral("historyToggle"));
    EXPECT_EQ(visibleCards(*this).size(), 4);
    EXPECT_TRUE(shows(QStringLiteral("historyPager")));
    EXPECT_TRUE(waitUntil([&] { return find<QWidget>(QStringLiteral("historyCards"))->height() == 82; }));
}

TEST(BuildHistory, CardsSummariseEachBuildInItsStatusColour)
{
    // Notes count as neither errors nor warnings.
    const struct {
        int errors;
        int warnings;
        int notes;
        QString summary;
        QColor colour;
    } cases[] = {
        {0, 0, 3, QStringLiteral("CLEAN"), theme::green()},
        {1, 5, 0, QStringLiteral("1 ERROR"), theme::red()},
        {0, 1, 2, QStringLiteral("1 WARNING"), theme::orange()},
        {0, 2, 0, QStringLiteral("2 WARNINGS"), theme::orange()},
        {12, 0, 1, QStringLiteral("12 ERRORS"), theme::red()},
    };
    for (const auto& c : cases) {
        const BuildSession session = sessionWith(c.errors, c.warnings, c.notes);
        EXPECT_EQ(HistoryCard::summaryText(session), c.summary);
        EXPECT_EQ(HistoryCard::statusColor(session), c.colour) << c.summary.toStdString();
    }
}

TEST_F(BuildHistoryTest, CardsShowTheVisibleSessionsAndClickingOneMakesItActive)
{
    capture(QStringLiteral("ExampleApp"), {error(1), warning(2)});
    capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    capture(QStringLiteral("ExampleApp"), {});

    QList<HistoryCard*> cards = visibleCards(*this);
    ASSERT_EQ(cards.size(), 3);
    EXPECT_EQ(cards[0]->summary(), QStringLiteral("CLEAN"));
    EXPECT_EQ(cards[1]->summary(), QStringLiteral("2 WARNINGS"));
    EXPECT_EQ(cards[2]->summary(), QStringLiteral("1 ERROR"));
    EXPECT_TRUE(cards[0]->accessibleName().startsWith(QStringLiteral("EXAMPLEAPP, ")));
    EXPECT_TRUE(cards[0]->isActive());
    EXPECT_FALSE(cards[2]->isActive());

    cards[2]->click();
    settle();
    EXPECT_EQ(store->activeSession()->id, cards[2]->sessionID());
    EXPECT_TRUE(cards[2]->isActive());
    EXPECT_FALSE(cards[0]->isActive());
    EXPECT_EQ(find<CountChip>(QStringLiteral("summaryErrors"))->text(), QStringLiteral("1"));
}
