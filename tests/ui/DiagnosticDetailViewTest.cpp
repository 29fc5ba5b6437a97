#include "DiagnosticDetailView.h"
#include "DiagnosticViewFixtures.h"
#include "DisplayText.h"
#include "Theme.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QTest>
#include <QTextEdit>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

// A project built twice; the second build adds a warning and an error at a
// file and an error that names no file.
struct DetailFixture : StoreFixture {
    DetailFixture()
    {
        captureBuild({QStringLiteral("/src/Widget.swift:10:2: warning: old warning")});
        captureBuild({
            QStringLiteral("/src/Widget.swift:10:2: warning: old warning"),
            QStringLiteral("/src/Widget.swift:20:4: warning: result of call is unused"),
            QStringLiteral("/src/Engine.swift:7:1: error: cannot find 'level' in scope"),
            QStringLiteral("error: linker command failed with exit code 1"),
        });
        view.resize(760, 640);
        view.show();
        view.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&view));
    }

    BuildDiagnostic diagnostic(const QString& message) const
    {
        const std::optional<BuildSession> session = store->activeSession();
        for (const BuildDiagnostic& d : session->diagnostics) {
            if (d.message == message)
                return d;
        }
        ADD_FAILURE() << "no diagnostic " << message.toStdString();
        return {};
    }

    void show(const QString& message)
    {
        view.setDiagnostic(diagnostic(message));
        settle();
    }

    // Clicks the visible button with this text; fails the test without one.
    void press(const QString& text)
    {
        QPushButton* button = buttonWithText(view, text);
        ASSERT_NE(button, nullptr) << text.toStdString();
        QTest::mouseClick(button, Qt::LeftButton);
        settle();
    }

    // The status tags in the order they appear, left to right.
    QStringList tags() const
    {
        QList<const QLabel*> shown;
        for (const QString& tag : {QStringLiteral("NEW SINCE LAST BUILD"), QStringLiteral("PINNED"),
                                   QStringLiteral("IGNORED")}) {
            for (const QLabel* label : view.findChildren<QLabel*>()) {
                if (label->text() == tag && label->isVisibleTo(&view))
                    shown.append(label);
            }
        }
        std::sort(shown.begin(), shown.end(), [](const QLabel* a, const QLabel* b) { return a->x() < b->x(); });
        QStringList texts;
        for (const QLabel* label : shown)
            texts.append(label->text());
        return texts;
    }

    QStringList cardTexts() const
    {
        QStringList texts;
        for (const QTextEdit* card : view.findChildren<QTextEdit*>())
            texts.append(card->toPlainText());
        return texts;
    }

    DiagnosticDetailView view{*store, platform, theme::cardColor(), theme::edge()};
};

} // namespace

TEST(DiagnosticDetailView, ShowsTheDiagnosticWhole)
{
    DetailFixture f;
    f.show(QStringLiteral("cannot find 'level' in scope"));
    const QStringList labels = visibleLabelTexts(f.view);
    EXPECT_TRUE(labels.contains(QStringLiteral("ERROR")));
    EXPECT_TRUE(labels.contains(QStringLiteral("Engine.swift")));
    EXPECT_TRUE(labels.contains(QStringLiteral("Engine.swift:7:1")));
    EXPECT_TRUE(labels.contains(QStringLiteral("DIAGNOSTIC")));
    EXPECT_TRUE(labels.contains(QStringLiteral("RAW BUILD OUTPUT")));
    EXPECT_EQ(f.cardTexts(), (QStringList{QStringLiteral("cannot find 'level' in scope"),
                                          QStringLiteral("/src/Engine.swift:7:1: error: cannot find 'level' in scope")}));
    EXPECT_EQ(f.tags(), QStringList{QStringLiteral("NEW SINCE LAST BUILD")});
    // Errors offer neither pin nor ignore.
    EXPECT_EQ(buttonWithText(f.view, QStringLiteral("Pin Warning")), nullptr);
    EXPECT_EQ(buttonWithText(f.view, QStringLiteral("Ignore Warning")), nullptr);

    // An older diagnostic that is still there carries no tag.
    f.show(QStringLiteral("old warning"));
    EXPECT_TRUE(visibleLabelTexts(f.view).contains(QStringLiteral("WARNING")));
    EXPECT_EQ(f.tags(), QStringList{});
}

TEST(DiagnosticDetailView, PinAndIgnoreButtonsFollowTheStore)
{
    DetailFixture f;
    f.show(QStringLiteral("result of call is unused"));
    EXPECT_EQ(f.tags(), QStringList{QStringLiteral("NEW SINCE LAST BUILD")});

    f.press(QStringLiteral("Pin Warning"));
    EXPECT_TRUE(f.store->isPinned(f.view.diagnostic()));
    EXPECT_EQ(f.tags(), (QStringList{QStringLiteral("NEW SINCE LAST BUILD"), QStringLiteral("PINNED")}));
    EXPECT_EQ(buttonWithText(f.view, QStringLiteral("Pin Warning")), nullptr);

    // Ignoring a pinned warning unpins it.
    f.press(QStringLiteral("Ignore Warning"));
    EXPECT_EQ(f.tags(), (QStringList{QStringLiteral("NEW SINCE LAST BUILD"), QStringLiteral("IGNORED")}));
    EXPECT_NE(buttonWithText(f.view, QStringLiteral("Restore Warning")), nullptr);

    // Changes made elsewhere (here: the store directly) show up as well.
    f.store->togglePin(f.view.diagnostic());
    settle();
    EXPECT_EQ(f.tags(), (QStringList{QStringLiteral("NEW SINCE LAST BUILD"), QStringLiteral("PINNED")}));
    EXPECT_NE(buttonWithText(f.view, QStringLiteral("Ignore Warning")), nullptr);

    f.press(QStringLiteral("Unpin Warning"));
    EXPECT_FALSE(f.store->isPinned(f.view.diagnostic()));
    EXPECT_EQ(f.tags(), QStringList{QStringLiteral("NEW SINCE LAST BUILD")});
}

TEST(DiagnosticDetailView, OpenInXcodeNeedsAFile)
{
    DetailFixture f;
    f.show(QStringLiteral("linker command failed with exit code 1"));
    EXPECT_TRUE(visibleLabelTexts(f.view).contains(QStringLiteral("Build")));
    QPushButton* open = buttonWithText(f.view, QStringLiteral("Open in Xcode"));
    ASSERT_NE(open, nullptr);
    EXPECT_FALSE(open->isEnabled());

    f.show(QStringLiteral("result of call is unused"));
    EXPECT_TRUE(open->isEnabled());
    QTest::mouseClick(open, Qt::LeftButton);
    ASSERT_EQ(f.platform.launches.size(), 1);
    EXPECT_EQ(f.platform.launches.first().arguments,
              (QStringList{QStringLiteral("xed"), QStringLiteral("--line"), QStringLiteral("20"),
                           QStringLiteral("/src/Widget.swift")}));
}

TEST(DiagnosticDetailView, CopiesTheShownDiagnosticsTexts)
{
    DetailFixture f;
    f.show(QStringLiteral("cannot find 'level' in scope"));
    const BuildDiagnostic shown = f.view.diagnostic();

    f.press(QStringLiteral("Copy Clean Error"));
    EXPECT_EQ(f.platform.clipboard, QStringLiteral("/src/Engine.swift:7:1\nERROR: cannot find 'level' in scope"));
    f.press(QStringLiteral("Copy for ChatGPT"));
    EXPECT_EQ(f.platform.clipboard, shown.chatGPTPrompt());

    // The shortcut copies the prompt, not the clean error, and of the
    // diagnostic shown now.
    f.show(QStringLiteral("linker command failed with exit code 1"));
    QTest::keyClick(&f.view, Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(f.platform.clipboardWrites, 3);
    EXPECT_EQ(f.platform.clipboard, f.view.diagnostic().chatGPTPrompt());
    EXPECT_TRUE(f.platform.clipboard.contains(QStringLiteral("File: Unknown")));
}

TEST(DiagnosticDetailView, ShowsAHugeUnbrokenMessageCutShortAndCopiesItWhole)
{
    DetailFixture f;
    const QString word(2'000'000, u'x');
    f.captureBuild({QStringLiteral("/a/b.c:1:2: error: ") + word});
    f.show(word);

    const QList<QTextEdit*> cards = f.view.findChildren<QTextEdit*>();
    ASSERT_EQ(cards.size(), 2);
    for (QTextEdit* card : cards) {
        const QString shown = displayText::withoutBreakHints(card->toPlainText());
        EXPECT_LT(shown.size(), displayText::cardLimit + 40);
        EXPECT_TRUE(shown.contains(QString(1000, u'x')));
        EXPECT_TRUE(shown.contains(u"x… (")) << shown.right(60).toStdString();
        EXPECT_TRUE(shown.endsWith(u" more characters)"));
        // The word wraps inside the card, over many lines.
        EXPECT_LE(card->document()->idealWidth(), card->viewport()->width());
        EXPECT_GT(card->height(), 20 * QFontMetrics(card->font()).lineSpacing());

        // Selecting the text copies what is shown, without the wrapping hints.
        card->selectAll();
        card->copy();
        EXPECT_EQ(QGuiApplication::clipboard()->text(), shown);
    }

    f.press(QStringLiteral("Copy Clean Error"));
    EXPECT_EQ(f.platform.clipboard, QStringLiteral("/a/b.c:1:2\nERROR: ") + word);
}
