#include "DisplayText.h"

#include <QStringList>

#include <algorithm>

#include <gtest/gtest.h>

using namespace corvane;

TEST(DisplayText, CutsOnlyLongTextsAndNeverInsideACharacter)
{
    EXPECT_EQ(displayText::bounded(QStringLiteral("short"), 5), QStringLiteral("short"));
    // The cut would fall between the halves of the emoji, so it comes before it.
    const QString text = QString(9, u'a') + QStringLiteral("😀") + QString(100, u'b');
    EXPECT_EQ(displayText::bounded(text, 10), QString(9, u'a') + QStringLiteral("… (102 more characters)"));
}

TEST(DisplayText, BreakHintsGoOnlyIntoRunsTooLongForALine)
{
    const QString prose = QStringLiteral("value of type '/src/Engine/Level.swift' has no member 'frameCount'");
    EXPECT_EQ(displayText::withBreakHints(prose), prose);

    const QString accented = QString(40, u'e') + QStringLiteral("e\u0301").repeated(40);
    const QString text = QStringLiteral("see ") + QString(1000, u'x') + accented + QStringLiteral(" end");
    const QString hinted = displayText::withBreakHints(text);
    EXPECT_EQ(displayText::withoutBreakHints(hinted), text);
    qsizetype longest = 0;
    for (const QString& piece : hinted.split(QChar(0x200B)))
        longest = std::max(longest, piece.size());
    EXPECT_LE(longest, 16);
    // A combining mark stays with its letter.
    EXPECT_FALSE(hinted.contains(QStringLiteral("\u200B\u0301")));
}
