// The parser fuzzer's seeds are short realistic logs full of the characters
// the candidate scan has to leave to ICU (folding, Unicode digits and white
// space, lone carriage returns). Checking both passes on them here keeps them
// in the ordinary test run, without a fuzzing build.

#include "DiagnosticParser.h"
#include "ParserCrossCheck.h"
#include "TestEnvironment.h"

#include <gtest/gtest.h>

#include <QDir>

using namespace corvane;

TEST(ParserFuzzSeeds, CandidateSearchAgreesWithFullSearchOnEverySeed)
{
    const QDir seeds(QStringLiteral(CORVANE_SOURCE_DIR "/fuzz/corpus/parser"));
    const QStringList names = seeds.entryList(QDir::Files, QDir::Name);
    ASSERT_GE(names.size(), 10) << seeds.path().toStdString();

    const DiagnosticParser parser;
    qsizetype diagnostics = 0;
    for (const QString& name : names) {
        const QByteArray text = test::readFile(seeds.filePath(name));
        const std::string_view utf8(text.constData(), size_t(text.size()));
        const std::optional<std::string> difference = crossCheckParser(parser, utf8);
        EXPECT_FALSE(difference.has_value()) << name.toStdString() << ": " << difference.value_or("");
        diagnostics += parser.parse(utf8).size();
    }
    // Agreement on texts without a single diagnostic would prove little.
    EXPECT_GE(diagnostics, 3 * names.size());
}
