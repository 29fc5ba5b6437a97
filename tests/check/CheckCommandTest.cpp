#include "CheckCommand.h"
#include "BuildHistoryPersistence.h"
#include "TestEnvironment.h"

#include <QBuffer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace Qt::StringLiterals;

const QString dataDir = QStringLiteral(CORVANE_SOURCE_DIR "/tests/check/data");

struct CheckRun {
    int code;
    QByteArray out;
    QByteArray err;
};

CheckRun check(const QStringList& arguments, const QByteArray& input = {})
{
    QByteArray in = input;
    QBuffer inBuffer(&in);
    QBuffer outBuffer;
    QBuffer errBuffer;
    inBuffer.open(QIODevice::ReadOnly);
    outBuffer.open(QIODevice::WriteOnly);
    errBuffer.open(QIODevice::WriteOnly);
    const int code = CheckCommand::run(arguments, {inBuffer, outBuffer, errBuffer, false});
    return {code, outBuffer.data(), errBuffer.data()};
}

// "new/fixed/unchanged" of a JSON report.
QString counts(const CheckRun& run)
{
    const QJsonObject c = QJsonDocument::fromJson(run.out).object().value(QLatin1StringView("counts")).toObject();
    return QStringLiteral("%1/%2/%3")
        .arg(c.value(QLatin1StringView("new")).toInt())
        .arg(c.value(QLatin1StringView("fixed")).toInt())
        .arg(c.value(QLatin1StringView("unchanged")).toInt());
}

class CheckCommandTest : public ::testing::Test {
protected:
    // A log, or a baseline file when the text is JSON.
    QString file(const char* name, const QByteArray& text)
    {
        const QString path = dir.filePath(QString::fromLatin1(name));
        test::writeFile(path, text);
        return path;
    }
    QStringList withBaseline(const QByteArray& baseline, const QByteArray& current)
    {
        const QString base = file("base", baseline);
        return {file("current.log", current), baseline.startsWith('{') ? u"--baseline"_s : u"--baseline-log"_s, base};
    }

    QTemporaryDir dir;
};

TEST_F(CheckCommandTest, ComparisonModes)
{
    struct Case {
        const char* name;
        QByteArray baseline;
        QByteArray current;
        QStringList options;
        const char* expected; // new/fixed/unchanged
    };
    const QByteArray w10 = "/p/a.swift:10:1: warning: w\n";
    const QByteArray w20 = "/p/a.swift:20:1: warning: w\n";
    const Case cases[] = {
        {"moved line is fixed and new", w10, "/p/a.swift:12:1: warning: w\n", {}, "1/1/0"},
        {"moved line is unchanged", w10, "/p/a.swift:12:4: warning: w\n", {u"--match"_s, u"moved"_s}, "0/0/1"},
        {"moved twins are counted",
         w10 + w20,
         "/p/a.swift:12:1: warning: w\n/p/a.swift:22:1: warning: w\n/p/a.swift:30:1: warning: w\n",
         {u"--match"_s, u"moved"_s},
         "1/0/2"},
        {"a twin that stayed keeps its place",
         w10 + w20,
         w20 + "/p/a.swift:25:1: warning: w\n",
         {u"--match"_s, u"moved"_s},
         "0/0/2"},
        {"moved keeps file and message",
         w10,
         "/p/b.swift:10:1: warning: w\n/p/a.swift:11:1: warning: v\n",
         {u"--match"_s, u"moved"_s},
         "2/1/0"},
        {"a log's repeated line is one", w10, w10 + w10, {}, "0/0/1"},
        {"build noise is left out", w10, w10 + "note: Target dependency graph (1 target)\n", {}, "0/0/1"},
        {"relative baseline against absolute log",
         R"({"format": "corvane-check-baseline", "version": 1, "diagnostics": [{"severity": "warning", "file": "src/a.swift", "line": 3, "message": "w"}]})",
         "/ci/work/src/a.swift:3:1: warning: w\n",
         {u"--relative-to"_s, u"/ci/work/"_s, u"--match"_s, u"moved"_s},
         "0/0/1"},
        {"without relative paths they differ",
         R"({"format": "corvane-check-baseline", "version": 1, "diagnostics": [{"severity": "warning", "file": "src/a.swift", "line": 3, "message": "w"}]})",
         "/ci/work/src/a.swift:3:1: warning: w\n",
         {u"--match"_s, u"moved"_s},
         "1/1/0"},
    };
    for (const Case& c : cases) {
        const CheckRun run =
            check(withBaseline(c.baseline, c.current) + c.options + QStringList{u"--format"_s, u"json"_s});
        EXPECT_EQ(counts(run), QString::fromLatin1(c.expected)) << c.name << run.err.constData();
    }
}

TEST_F(CheckCommandTest, EachFormatMatchesItsExpectedFile)
{
    const QString out = dir.filePath(QStringLiteral("out"));
    const QStringList common{dataDir + u"/current.log"_s, u"--baseline-log"_s, dataDir + u"/previous.log"_s,
                             u"--relative-to"_s, u"/Users/dev/App"_s};
    for (const char* format : {"text", "github", "markdown", "sarif", "json"}) {
        const QString extension = QString::fromLatin1(format) == u"markdown"_s ? QStringLiteral("md")
            : QString::fromLatin1(format) == u"text"                           ? QStringLiteral("txt")
                                                                               : QString::fromLatin1(format);
        const CheckRun run = check(common + QStringList{u"--format"_s, QString::fromLatin1(format) + u'=' + out});
        EXPECT_EQ(run.code, 1) << format << run.err.constData();
        EXPECT_EQ(test::readFile(out), test::readFile(dataDir + u"/expected."_s + extension)) << format;
    }
    // The baseline file of the same build, and a check against it finds nothing new.
    const QString baseline = dir.filePath(QStringLiteral("baseline.json"));
    ASSERT_EQ(check(common + QStringList{u"--write-baseline"_s, baseline, u"--format"_s, u"json="_s + out}).code, 1);
    EXPECT_EQ(test::readFile(baseline), test::readFile(dataDir + u"/expected-baseline.json"_s));
    const CheckRun again = check({dataDir + u"/current.log"_s, u"--baseline"_s, baseline, u"--relative-to"_s,
                                  u"/Users/dev/App"_s, u"--format"_s, u"json"_s});
    EXPECT_EQ(again.code, 0);
    EXPECT_EQ(counts(again), QStringLiteral("0/0/5"));
}

// SARIF results are written as text: what needs escaping must come back as it was.
TEST_F(CheckCommandTest, SarifTextsSurviveEscaping)
{
    const QByteArray log = "/p/q \"r\"\\s.swift:1:2: warning: say \"hi\" \\ to caf\xC3\xA9 \xF0\x9F\x90\xA6 {}[]\n";
    const CheckRun run = check({file("current.log", log), u"--format"_s, u"sarif"_s, u"--fail-on"_s, u"never"_s});
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(run.out, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString() << run.out.constData();
    const QJsonObject result = document[u"runs"_s][0][u"results"_s][0].toObject();
    EXPECT_EQ(result[u"message"_s][u"text"_s].toString(), QStringLiteral("say \"hi\" \\ to caf\u00E9 \U0001F426 {}[]"));
    EXPECT_EQ(result[u"locations"_s][0][u"physicalLocation"_s][u"artifactLocation"_s][u"uri"_s].toString(),
              QStringLiteral("file:///p/q%20%22r%22%5Cs.swift"));
}

TEST_F(CheckCommandTest, MarkdownTablesAreCapped)
{
    QByteArray log;
    for (int line = 1; line <= 52; ++line)
        log += "/p/a.swift:" + QByteArray::number(line) + ": warning: w\n";
    const CheckRun run = check(withBaseline("", log) + QStringList{u"--format"_s, u"markdown"_s});
    EXPECT_EQ(run.out.count("| warning |"), 50);
    EXPECT_TRUE(run.out.contains("\nand 2 more\n")) << run.out.constData();
}

TEST_F(CheckCommandTest, GateExitCodes)
{
    struct Case {
        QByteArray baseline; // empty: no baseline
        QByteArray current;
        QString gate;
        int expected;
    };
    const QByteArray warning = "/p/a.swift:1:1: warning: w\n";
    const QByteArray error = "/p/a.swift:2:1: error: e\n";
    const Case cases[] = {
        {"x\n", warning, {}, 1},       {"x\n", warning, u"new-errors"_s, 0}, {"x\n", error, u"new-errors"_s, 1},
        {warning, warning, {}, 0},     {error, error, u"new-warnings"_s, 0}, {error, error, u"errors"_s, 1},
        {"x\n", error, u"never"_s, 0}, {{}, error + warning, {}, 0},         {{}, error, u"errors"_s, 1},
    };
    for (const Case& c : cases) {
        QStringList arguments =
            c.baseline.isEmpty() ? QStringList{file("current.log", c.current)} : withBaseline(c.baseline, c.current);
        if (!c.gate.isEmpty())
            arguments << u"--fail-on"_s << c.gate;
        EXPECT_EQ(check(arguments).code, c.expected) << c.current.constData() << c.gate.toStdString();
    }
}

TEST_F(CheckCommandTest, StandardInputPlainOrCompressed)
{
    const QByteArray log = test::readFile(dataDir + u"/current.log"_s);
    const QStringList arguments{u"-"_s, u"--baseline-log"_s, dataDir + u"/previous.log"_s, u"--format"_s, u"json"_s};
    const CheckRun plain = check(arguments, log);
    EXPECT_EQ(counts(plain), QStringLiteral("3/2/2")) << plain.err.constData();
    const CheckRun compressed = check(arguments, test::gzipBytes(log));
    EXPECT_EQ(compressed.out, plain.out) << compressed.err.constData();
}

TEST_F(CheckCommandTest, HistoryBaselineIsTheProjectsNewestSession)
{
    const auto session = [](const QString& project, const char* message) {
        BuildSession s;
        s.id = QUuid::createUuid();
        s.projectName = project;
        BuildDiagnostic d;
        d.id = QUuid::createUuid();
        d.severity = DiagnosticSeverity::warning;
        d.message = QString::fromLatin1(message);
        s.diagnostics.append(d);
        return s;
    };
    BuildHistoryArchive archive;
    archive.sessions = {session(u"Other"_s, "o"), session(u"App"_s, "new one"), session(u"App"_s, "old one")};
    const QString history = file("history.plist", BuildHistoryPersistence::encodeArchive(archive));
    const QString log = file("current.log", "warning: new one\n");
    const CheckRun run =
        check({log, u"--baseline-history"_s, u"App"_s, u"--history-file"_s, history, u"--format"_s, u"json"_s});
    EXPECT_EQ(counts(run), QStringLiteral("0/0/1")) << run.err.constData();
}

TEST_F(CheckCommandTest, BadInputIsOneLineAndExitTwoWithNothingWritten)
{
    const QString log = file("current.log", "warning: w\n");
    QByteArray truncated = test::gzipBytes(QByteArray(4096, 'x'));
    truncated.chop(20);
    struct Case {
        QStringList arguments;
        const char* expected;
    };
    const Case cases[] = {
        {{dir.filePath(u"missing.log"_s)}, "missing.log: no such file"},
        {{file("damaged.xcactivitylog", truncated)}, "Could not decompress Xcode activity log"},
        {{log, u"--baseline"_s,
          file("v2.json", R"({"format": "corvane-check-baseline", "version": 2, "diagnostics": []})")},
         "version 2"},
        {{log, u"--baseline"_s, file("damaged.json", "{\"format\": ")}, "damaged baseline file"},
        {{log, u"--baseline"_s,
          file(
              "bad-record.json",
              R"({"format": "corvane-check-baseline", "version": 1, "diagnostics": [{"severity": "Error", "message": "m"}]})")},
         "diagnostic 1 is not valid"},
        {{log, u"--baseline-history"_s, u"App"_s, u"--history-file"_s, file("history.plist", "bplist00garbage")},
         "history.plist"},
        {{log, u"--baseline-history"_s, u"App"_s, u"--history-file"_s,
          file("empty.plist", BuildHistoryPersistence::encodeArchive({}))},
         "no build of project \"App\""},
        {{log, u"--format"_s, u"xml"_s}, "unknown format \"xml\""},
        {{log, u"--match"_s, u"fuzzy"_s}, "unknown --match mode"},
        {{log, u"--fail-on"_s, u"sometimes"_s}, "unknown --fail-on gate"},
        {{log, u"--frobnicate"_s}, "frobnicate"},
        {{}, "no build log given"},
    };
    const QString out = dir.filePath(QStringLiteral("report.json"));
    for (const Case& c : cases) {
        const CheckRun run = check(c.arguments + QStringList{u"--format"_s, u"json="_s + out});
        EXPECT_EQ(run.code, 2) << c.expected;
        EXPECT_TRUE(run.err.startsWith("corvane-check: ") && run.err.count('\n') == 1 && run.err.endsWith('\n'))
            << run.err.constData();
        EXPECT_TRUE(run.err.contains(c.expected)) << run.err.constData();
        EXPECT_FALSE(QFile::exists(out)) << c.expected;
    }
}

} // namespace
} // namespace corvane
