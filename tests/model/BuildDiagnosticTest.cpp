#include "BuildDiagnostic.h"

#include <gtest/gtest.h>

using namespace corvane;

namespace {

BuildDiagnostic located()
{
    BuildDiagnostic d;
    d.id = QUuid::createUuid();
    d.severity = DiagnosticSeverity::error;
    d.message = QStringLiteral("cannot find 'widgetTitle' in scope");
    d.filePath = QStringLiteral("/Users/ustra/Developer/ExampleApp/ContentView.swift");
    d.line = 48;
    d.column = 17;
    d.rawText = QStringLiteral("/Users/ustra/Developer/ExampleApp/ContentView.swift:48:17: error: cannot find 'widgetTitle' in scope");
    d.timestamp = AbsoluteTime::now();
    return d;
}

} // namespace

TEST(BuildDiagnosticTexts, FullyLocatedDiagnostic)
{
    const BuildDiagnostic d = located();
    EXPECT_EQ(d.diagnosticFileName(), QStringLiteral("ContentView.swift"));
    EXPECT_EQ(d.locationLabel(), QStringLiteral("ContentView.swift:48:17"));
    EXPECT_EQ(d.cleanErrorText(),
              QStringLiteral("/Users/ustra/Developer/ExampleApp/ContentView.swift:48:17\n"
                             "ERROR: cannot find 'widgetTitle' in scope"));
    EXPECT_EQ(d.chatGPTPrompt(),
              QStringLiteral("Xcode build diagnostic\n\nSeverity: error\n"
                             "File: /Users/ustra/Developer/ExampleApp/ContentView.swift\n"
                             "Line: 48\nColumn: 17\n\nMessage:\ncannot find 'widgetTitle' in scope\n\n"
                             "Raw diagnostic:\n") + d.rawText);
}

TEST(BuildDiagnosticTexts, MissingPartsOfTheLocation)
{
    BuildDiagnostic fileOnly = located();
    fileOnly.line.reset();
    fileOnly.column.reset();
    EXPECT_EQ(fileOnly.locationLabel(), QStringLiteral("ContentView.swift"));
    EXPECT_EQ(fileOnly.cleanErrorText().section(u'\n', 0, 0), *fileOnly.filePath);
    EXPECT_TRUE(fileOnly.chatGPTPrompt().contains(QStringLiteral("\nLine: Unknown\nColumn: Unknown\n")));

    // A column without a line is never shown as a location, but the prompt
    // still reports it.
    BuildDiagnostic columnOnly = located();
    columnOnly.line.reset();
    columnOnly.column = -3;
    EXPECT_EQ(columnOnly.locationLabel(), QStringLiteral("ContentView.swift"));
    EXPECT_EQ(columnOnly.cleanErrorText().section(u'\n', 0, 0), *columnOnly.filePath);
    EXPECT_TRUE(columnOnly.chatGPTPrompt().contains(QStringLiteral("\nLine: Unknown\nColumn: -3\n")));

    BuildDiagnostic noFile = located();
    noFile.filePath.reset();
    noFile.severity = DiagnosticSeverity::warning;
    EXPECT_EQ(noFile.diagnosticFileName(), QStringLiteral("Build"));
    EXPECT_EQ(noFile.locationLabel(), QStringLiteral("Build:48:17"));
    EXPECT_EQ(noFile.cleanErrorText(), QStringLiteral("WARNING: cannot find 'widgetTitle' in scope"));
    EXPECT_TRUE(noFile.chatGPTPrompt().contains(QStringLiteral("\nFile: Unknown\n")));
}

TEST(BuildDiagnosticIdentity, EqualityUsesEveryFieldSignatureOnlyTheFive)
{
    const BuildDiagnostic a = located();
    BuildDiagnostic b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(qHash(a), qHash(b));
    b.id = QUuid::createUuid();
    EXPECT_NE(a, b);
    EXPECT_EQ(a.signature(), b.signature());
    EXPECT_EQ(qHash(a.signature()), qHash(b.signature()));

    BuildDiagnostic noLine = a;
    noLine.line.reset();
    EXPECT_NE(a.signature(), noLine.signature());
}

TEST(BuildDiagnosticNoise, OnlyNotesWhoseLowerCasedMessageHoldsAPhrase)
{
    BuildDiagnostic d = located();
    d.severity = DiagnosticSeverity::note;
    d.message = QStringLiteral("Target dependency graph (1 target)");
    EXPECT_TRUE(d.isBuildNoise());
    d.message = QStringLiteral("Planning Build");
    EXPECT_TRUE(d.isBuildNoise());
    d.message = QStringLiteral("Ünïcode: WRITE AUXILIARY FILE ✓");
    EXPECT_TRUE(d.isBuildNoise());
    d.message = QStringLiteral("add an explicit type annotation");
    EXPECT_FALSE(d.isBuildNoise());
    d.severity = DiagnosticSeverity::warning;
    d.message = QStringLiteral("slow build preparation");
    EXPECT_FALSE(d.isBuildNoise());
}
