#include "DiagnosticParser.h"
#include "ParserCrossCheck.h"
#include "ParserPatterns.h"

#include <gtest/gtest.h>

#include <limits>

using namespace corvane;

namespace {

// Short texts are also checked against the plain search, so that these
// expectations hold for the regular expressions themselves.
QList<BuildDiagnostic> parse(const QString& text)
{
    static const DiagnosticParser parser;
    if (text.size() < 10000) {
        const QByteArray utf8 = text.toUtf8();
        const std::optional<std::string> difference = crossCheckParser(parser, utf8.toStdString());
        EXPECT_FALSE(difference) << *difference;
    }
    return parser.parse(text);
}

QStringList rawTexts(const QList<BuildDiagnostic>& diagnostics)
{
    QStringList texts;
    for (const BuildDiagnostic& d : diagnostics)
        texts.append(d.rawText);
    return texts;
}

} // namespace

TEST(DiagnosticParser, LocatedAndSimpleLinesInResultOrder)
{
    const DiagnosticParser parser;
    ASSERT_TRUE(parser.patterns().location);
    ASSERT_TRUE(parser.patterns().simple);
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
    EXPECT_NE(found[0].id, found[1].id);
}

TEST(DiagnosticParser, NothingToFind)
{
    EXPECT_TRUE(parse(QString()).isEmpty());
    EXPECT_TRUE(parse(QStringLiteral("CompileSwift normal arm64 /a/b.swift\r    cd /a\r** BUILD SUCCEEDED **\r")).isEmpty());
    // An extension outside the list, and a location without a severity word.
    EXPECT_TRUE(parse(QStringLiteral("/a/build.sh:3: error: missing tool\n/a/b.swift:12 in closure\n")).isEmpty());
}

TEST(DiagnosticParser, LocatedNumbers)
{
    const QList<BuildDiagnostic> found = parse(QStringLiteral(
        "/App/Sources/VIEW.SWIFT:7:3: WARNING: upper case\n"
        "/a/b.swift:99999999999999999999:4: error: line too long to read\n"
        "/a/c.m:\u0663\u0664:5: error: arabic-indic line\n"
        "/a/d.mm:9223372036854775807: note: largest line\n"));
    ASSERT_EQ(found.size(), 4);
    EXPECT_EQ(found[0].filePath, QStringLiteral("/App/Sources/VIEW.SWIFT"));
    EXPECT_EQ(found[0].severity, DiagnosticSeverity::warning);
    EXPECT_EQ(found[0].rawText, QStringLiteral("/App/Sources/VIEW.SWIFT:7:3: warning: upper case"));
    // A line that cannot be read leaves the column on its own in the raw text.
    EXPECT_EQ(found[1].line, std::nullopt);
    EXPECT_EQ(found[1].column, 4);
    EXPECT_EQ(found[1].rawText, QStringLiteral("/a/b.swift:4: error: line too long to read"));
    EXPECT_EQ(found[2].line, std::nullopt);
    EXPECT_EQ(found[2].column, 5);
    EXPECT_EQ(found[3].line, std::numeric_limits<qint64>::max());
}

TEST(DiagnosticParser, ReadNumber)
{
    EXPECT_EQ(DiagnosticParser::readNumber(u"0042"), 42);
    EXPECT_EQ(DiagnosticParser::readNumber(u"-9223372036854775808"), std::numeric_limits<qint64>::min());
    EXPECT_EQ(DiagnosticParser::readNumber(u"9223372036854775808"), std::nullopt);
    EXPECT_EQ(DiagnosticParser::readNumber(u"+7"), 7);
    EXPECT_EQ(DiagnosticParser::readNumber(u""), std::nullopt);
    EXPECT_EQ(DiagnosticParser::readNumber(u"-"), std::nullopt);
    EXPECT_EQ(DiagnosticParser::readNumber(u"\uFF11\uFF12"), std::nullopt);
    EXPECT_EQ(DiagnosticParser::readNumber(u"1 2"), std::nullopt);
}

TEST(DiagnosticParser, MessagesAreCleanedAndMayComeFromTheNextLine)
{
    EXPECT_EQ(DiagnosticParser::cleanMessage(u"one\t\ttwo   three "), QStringLiteral("one two three"));
    EXPECT_EQ(DiagnosticParser::cleanMessage(u"\u00A0 a \t \u2028"), QStringLiteral("a"));

    // An empty message takes the next line that is not blank.
    QList<BuildDiagnostic> found = parse(QStringLiteral(
        "/a/b.swift:3:1: error:   \r\r   \rthe real message\rwarning:\n\tfrom below\n"));
    ASSERT_EQ(found.size(), 2);
    EXPECT_EQ(found[0].message, QStringLiteral("the real message"));
    EXPECT_EQ(found[0].rawText, QStringLiteral("/a/b.swift:3:1: error: the real message"));
    EXPECT_EQ(found[1].rawText, QStringLiteral("warning: from below"));

    // With nothing after it the located line gives nothing, and the simple
    // pass does not take it either.
    EXPECT_TRUE(parse(QStringLiteral("/a/b.swift:3:1: error:  \t \n\n")).isEmpty());
}

TEST(DiagnosticParser, SimpleLinesStartALine)
{
    const QList<BuildDiagnostic> found = parse(QStringLiteral(
        "ERROR: shouted\n"
        " \t warning: indented\n"
        "ld: warning: after other text\n"
        "x\u2028note: after a line separator\n"
        "y\u0085note: after a next-line character\n"
        "z\u00A0note: after a no-break space\n"));
    EXPECT_EQ(rawTexts(found), (QStringList{QStringLiteral("error: shouted"), QStringLiteral("warning: indented"),
                                            QStringLiteral("note: after a line separator"),
                                            QStringLiteral("note: after a next-line character")}));
    EXPECT_EQ(found[0].severity, DiagnosticSeverity::error);
}

TEST(DiagnosticParser, DuplicatesAndResultOrder)
{
    const QList<BuildDiagnostic> found = parse(QStringLiteral(
        "error: cannot find 'x' in scope\n"
        "warning: cannot find 'x' in scope\n"
        "note: twice\n"
        "note: twice\n"
        "/a/b.swift:1:2: error: cannot find 'x' in scope\n"
        "/a/b.swift:1:2: error: cannot find 'x' in scope\n"
        "/a/b.swift:1:3: error: cannot find 'x' in scope\n"));
    // Located first; the simple error with a located twin is dropped, the
    // warning with the same message is kept.
    EXPECT_EQ(rawTexts(found), (QStringList{QStringLiteral("/a/b.swift:1:2: error: cannot find 'x' in scope"),
                                            QStringLiteral("/a/b.swift:1:3: error: cannot find 'x' in scope"),
                                            QStringLiteral("warning: cannot find 'x' in scope"),
                                            QStringLiteral("note: twice")}));
}

// A huge build repeats its messages and paths hundreds of thousands of
// times; records hold one string of each, also with other lines between.
TEST(DiagnosticParser, RepeatedPathsAndMessagesShareOneString)
{
    const QList<BuildDiagnostic> found = parse(QStringLiteral(
        "/a/\u00E9.c:1: warning: unused '\u00E4'\n"
        "/b/x.c:2: warning: other\n"
        "/a/\u00E9.c:3: warning: unused '\u00E4'\n"
        "/a/\u00E9.cc:4: warning: unused '\u00E4'\n"
        "/a/\u00E9.c:5: warning: unused '\u00E4x'\n"
        "error: other\n"));
    ASSERT_EQ(found.size(), 6);
    const auto storage = [](const QString& text) { return text.constData(); };
    EXPECT_EQ(storage(*found[0].filePath), storage(*found[2].filePath));
    EXPECT_EQ(storage(*found[0].filePath), storage(*found[4].filePath));
    EXPECT_EQ(*found[3].filePath, QStringLiteral("/a/\u00E9.cc"));
    EXPECT_EQ(storage(found[0].message), storage(found[3].message));
    EXPECT_EQ(found[4].message, QStringLiteral("unused '\u00E4x'"));
    EXPECT_EQ(storage(found[1].message), storage(found[5].message));
}

TEST(DiagnosticParser, ControlCharactersSeparateLines)
{
    const QString text = QStringLiteral("/a/b.swift:1: error: first") + QChar(u'\0')
        + QStringLiteral("warning: second") + QChar(u'\x02') + QStringLiteral("note: third");
    EXPECT_EQ(rawTexts(parse(text)), (QStringList{QStringLiteral("/a/b.swift:1: error: first"),
                                                  QStringLiteral("warning: second"),
                                                  QStringLiteral("note: third")}));
}

TEST(DiagnosticParser, NonAsciiSpellingsAreMatchedAsTheRegexDoes)
{
    // Case-insensitive matching folds ſ to s and ﬁ to fi, so these paths
    // carry source extensions; the path keeps its own spelling.
    const QList<BuildDiagnostic> found = parse(QStringLiteral(
        "/a/b.\u017Fwift:4: error: long s\n/a/c.intentde\uFB01nition:5: note: ligature\n/a/d.\u0131xx:6: error: dotless i\n"));
    ASSERT_EQ(found.size(), 2);
    EXPECT_EQ(found[0].filePath, QStringLiteral("/a/b.\u017Fwift"));
    EXPECT_EQ(found[1].line, 5);
}

// A diagnostic path at the end of a very long command line, and another
// after it: found without the plain search's backtracking.
TEST(DiagnosticParser, LongCommandLines)
{
    QString line = QStringLiteral("    /usr/bin/swift-frontend -frontend -c");
    while (line.size() < 300000)
        line += QStringLiteral(" -I/Users/dev/App/Sources/Module/include /Users/dev/App/Sources/Module/File.swift");
    const QString text = line + QStringLiteral(" /x/Late.swift:3: error: late\r") + line
        + QStringLiteral("\r/x/Next.h:9:1: warning: next\r");
    const QList<BuildDiagnostic> found = parse(text);
    ASSERT_EQ(found.size(), 2);
    // The path starts at the line's first "/": the lazy path runs to the
    // first extension that is followed by a location and a severity.
    EXPECT_TRUE(found[0].filePath->startsWith(QStringLiteral("/usr/bin/swift-frontend -frontend -c -I/Users")));
    EXPECT_TRUE(found[0].filePath->endsWith(QStringLiteral("File.swift /x/Late.swift")));
    EXPECT_EQ(found[0].message, QStringLiteral("late"));
    EXPECT_EQ(found[1].filePath, QStringLiteral("/x/Next.h"));
}

// Where a log arriving in pieces may be cut. Cutting too eagerly is caught by
// the equivalence tests; these catch a stream that never cuts and so holds
// the whole log.
TEST(DiagnosticParser, StreamCutsAfterLinesNoMatchCanLeave)
{
    const struct {
        std::string_view text;
        std::size_t cut;
    } cases[] = {
        {"a\nb", 2},
        {"a\rb", 2},
        {"a\r\nb", 3},          // the pair is one line end
        {"x\ny:\nz", 2},        // a line ending in ":" goes on below
        {"x\ny \rz", 2},        // as does one ending in white space
        {"x\ny\xC2\xA0\nz", 2}, // non-ASCII might be white space
        {"a\r", 0},             // a line feed may follow
        {"a\r\x01z", 0},        // that becomes a line feed
        {"\nb", 0},
        {"", 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DiagnosticParser::Stream::lastSafeCut(c.text), c.cut)
            << ::testing::PrintToString(std::string(c.text));
}
