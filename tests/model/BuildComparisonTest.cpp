#include "BuildComparison.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

BuildDiagnostic make(DiagnosticSeverity severity, const QString& message, qint64 line)
{
    BuildDiagnostic d;
    d.id = QUuid::createUuid();
    d.severity = severity;
    d.message = message;
    d.filePath = QStringLiteral("/src/A.swift");
    d.line = line;
    return d;
}

TEST(BuildComparison, KeepsDuplicatesAndPreviousOrder)
{
    const BuildDiagnostic moved = make(DiagnosticSeverity::warning, QStringLiteral("m"), 5);
    const BuildDiagnostic movedNow = make(DiagnosticSeverity::warning, QStringLiteral("m"), 6);
    const BuildDiagnostic gone1 = make(DiagnosticSeverity::error, QStringLiteral("z"), 1);
    const BuildDiagnostic gone2 = make(DiagnosticSeverity::note, QStringLiteral("a"), 2);
    const BuildDiagnostic twin1 = make(DiagnosticSeverity::error, QStringLiteral("twin"), 9);
    const BuildDiagnostic twin2 = make(DiagnosticSeverity::error, QStringLiteral("twin"), 9);
    BuildDiagnostic sameButRetimed = gone2;
    sameButRetimed.id = QUuid::createUuid();
    sameButRetimed.rawText = QStringLiteral("different raw text");
    sameButRetimed.timestamp = AbsoluteTime{12345};

    EXPECT_EQ(compareDiagnostics({moved}, std::nullopt), BuildComparison::empty());

    const BuildComparison comparison =
        compareDiagnostics({movedNow, twin1, twin2}, QList<BuildDiagnostic>{gone1, moved, gone2});
    EXPECT_TRUE(comparison.hasBaseline);
    EXPECT_EQ(comparison.newDiagnosticIDs, (QSet<QUuid>{movedNow.id, twin1.id, twin2.id}));
    EXPECT_EQ(comparison.fixedDiagnostics, (QList<BuildDiagnostic>{gone1, moved, gone2}));

    const BuildComparison unchanged = compareDiagnostics({sameButRetimed}, QList<BuildDiagnostic>{gone2});
    EXPECT_TRUE(unchanged.newDiagnosticIDs.isEmpty()) << "id, raw text and time are not part of the identity";
    EXPECT_TRUE(unchanged.fixedDiagnostics.isEmpty());

    const BuildComparison fromEmpty = compareDiagnostics({}, QList<BuildDiagnostic>{});
    EXPECT_TRUE(fromEmpty.hasBaseline) << "an empty previous build is still a baseline";
}

} // namespace
} // namespace corvane
