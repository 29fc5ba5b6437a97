#include "DiagnosticParser.h"

#include <gtest/gtest.h>

using namespace corvane;

TEST(DiagnosticParser, LocatedAndSimpleLinesInResultOrder)
{
    const DiagnosticParser parser;
    ASSERT_TRUE(parser.hasLocationRegex());
    ASSERT_TRUE(parser.hasSimpleRegex());
    const QString text = QStringLiteral(
        "note: Target dependency graph (1 target)\n"
        "/Users/ustra/Developer/ExampleApp/ContentView.swift:48:17: error: cannot find 'widgetTitle' in scope\r"
        "/Users/ustra/Developer/ExampleApp/Renderer.swift:76: Warning:\tresult of   call is unused \n");
    const QList<BuildDiagnostic> found = parser.parse(text);
    ASSERT_EQ(found.size(), 3);
    EXPECT_EQ(found[0].filePath, QStringLiteral("/Users/ustra/Developer/ExampleApp/ContentView.swift"));
    EXPECT_EQ(found[0].line, 48);
    EXPECT_EQ(found[0].column, 17);
    EXPECT_EQ(found[0].rawText,
              QStringLiteral("/Users/ustra/Developer/ExampleApp/ContentView.swift:48:17: error: cannot find 'widgetTitle' in scope"));
    EXPECT_EQ(found[1].severity, DiagnosticSeverity::warning);
    EXPECT_EQ(found[1].column, std::nullopt);
    EXPECT_EQ(found[1].message, QStringLiteral("result of call is unused"));
    EXPECT_EQ(found[1].rawText,
              QStringLiteral("/Users/ustra/Developer/ExampleApp/Renderer.swift:76: warning: result of call is unused"));
    EXPECT_EQ(found[2].filePath, std::nullopt);
    EXPECT_EQ(found[2].rawText, QStringLiteral("note: Target dependency graph (1 target)"));
    EXPECT_TRUE(found[2].isBuildNoise());
}
