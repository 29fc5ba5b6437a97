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

TEST(BuildComparison, SharingTextsTakesTheEarlierStorageAndChangesNoValue)
{
    // Texts of their own, as a parser makes them; literals would share theirs.
    const auto parsed = [](const char* message, const char* raw) {
        BuildDiagnostic d = make(DiagnosticSeverity::warning, QString::fromLatin1(message), 3);
        d.filePath = QString::fromLatin1("/src/A.swift");
        d.rawText = QString::fromLatin1(raw);
        return d;
    };
    const QList<BuildDiagnostic> previous{parsed("kept", "A.swift:3: kept"), parsed("gone", "A.swift:3: gone")};
    QList<BuildDiagnostic> current{parsed("kept", "A.swift:3: kept"), parsed("kept", "another raw text"),
                                   parsed("added", "A.swift:3: added")};
    const QList<BuildDiagnostic> before = current;

    const BuildComparison shared = compareDiagnosticsSharingTexts(current, previous);
    EXPECT_EQ(shared, compareDiagnostics(before, previous));
    EXPECT_EQ(current, before);
    const BuildDiagnostic& earlier = previous[0];
    EXPECT_EQ(current[0].message.constData(), earlier.message.constData());
    EXPECT_EQ(current[0].filePath->constData(), earlier.filePath->constData());
    EXPECT_EQ(current[0].rawText.constData(), earlier.rawText.constData());
    EXPECT_EQ(current[1].message.constData(), earlier.message.constData());
    EXPECT_NE(current[1].rawText.constData(), earlier.rawText.constData()) << "a different raw text stays its own";
    EXPECT_NE(current[2].message.constData(), previous[1].message.constData());
    EXPECT_NE(before[0].message.constData(), earlier.message.constData()) << "the list given was detached first";
}

} // namespace
} // namespace corvane

namespace corvane {
namespace {

// Builds of that size are compared on two threads; the outcome must be the
// one the plain definition gives.
TEST(BuildComparison, LargeBuildsGiveWhatTheDefinitionGives)
{
    QList<BuildDiagnostic> previous;
    QList<BuildDiagnostic> current;
    for (qint64 line = 0; line < 15000; ++line) {
        previous.append(make(DiagnosticSeverity::warning, QStringLiteral("w %1").arg(line % 9000), line));
        // A third of the lines moved, so a third is new and a third fixed.
        current.append(make(DiagnosticSeverity::warning, QStringLiteral("w %1").arg(line % 9000),
                            line % 3 == 0 ? line + 100000 : line));
    }
    QSet<DiagnosticSignature> before;
    for (const BuildDiagnostic& d : previous)
        before.insert(d.signature());
    QSet<DiagnosticSignature> after;
    QSet<QUuid> expectedNew;
    for (const BuildDiagnostic& d : current) {
        after.insert(d.signature());
        if (!before.contains(d.signature()))
            expectedNew.insert(d.id);
    }
    QList<BuildDiagnostic> expectedFixed;
    for (const BuildDiagnostic& d : previous) {
        if (!after.contains(d.signature()))
            expectedFixed.append(d);
    }
    ASSERT_EQ(expectedNew.size(), 5000);

    const QList<BuildDiagnostic> values = current;
    const BuildComparison comparison = compareDiagnosticsSharingTexts(current, previous);
    EXPECT_EQ(comparison.newDiagnosticIDs, expectedNew);
    EXPECT_EQ(comparison.fixedDiagnostics, expectedFixed);
    EXPECT_EQ(current, values);
    EXPECT_EQ(current[1].message.constData(), previous[1].message.constData());
}

} // namespace
} // namespace corvane
