// Files must stay readable by other property-list implementations, and files
// they write must be readable here. Python's plistlib stands in for them.
#include "BinaryPropertyListWriter.h"
#include "BuildHistoryPersistence.h"
#include "DiagnosticPreferencesPersistence.h"
#include "PersistenceTestSupport.h"
#include "PropertyListRecords.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <cmath>

namespace corvane {
namespace {

using namespace Qt::StringLiterals;

// Prints the file as JSON, each value tagged with the Python type plistlib
// gave it; dates as seconds since 2001 and integers as text, so nothing is
// lost on the way.
const QString describeScript = uR"(
import datetime, json, plistlib, sys
def describe(v):
    if isinstance(v, bool): return {"bool": v}
    if isinstance(v, int): return {"int": str(v)}
    if isinstance(v, float): return {"real": v}
    if isinstance(v, datetime.datetime):
        return {"date": (v - datetime.datetime(2001, 1, 1)).total_seconds()}
    if isinstance(v, str): return {"str": v}
    if isinstance(v, bytes): return {"data": v.hex()}
    if isinstance(v, list): return {"array": [describe(x) for x in v]}
    if isinstance(v, dict): return {"dict": {k: describe(x) for k, x in v.items()}}
    return {"other": type(v).__name__}
with open(sys.argv[1], "rb") as f:
    print(json.dumps(describe(plistlib.load(f, fmt=plistlib.FMT_BINARY))))
)"_s;

QJsonObject describe(const QString& path)
{
    const test::PythonResult python = test::runPython(describeScript, {path});
    EXPECT_TRUE(python.started) << "python3 could not be started";
    EXPECT_EQ(python.exitCode, 0) << python.errors.toStdString();
    return QJsonDocument::fromJson(python.output).object();
}

QJsonObject field(const QJsonObject& tagged, const QString& key)
{
    return tagged[u"dict"_s].toObject()[key].toObject();
}

QString text(const QJsonObject& tagged) { return tagged[u"str"_s].toString(); }

// A dictionary's keys, sorted.
QStringList keys(const QJsonObject& tagged) { return tagged[u"dict"_s].toObject().keys(); }

class PlistlibInteropTest : public ::testing::Test {
protected:
    QString file(const QString& name) const { return env.appFolder() + u'/' + name; }
    test::TestEnvironment env;
};

TEST_F(PlistlibInteropTest, PlistlibReadsOurHistory)
{
    QList<BuildSession> sessions = test::sampleSessions(2, 4);
    sessions[0].diagnostics[0].line = -3;
    sessions[0].diagnostics[0].column = qint64(1) << 40;
    ASSERT_TRUE(BuildHistoryPersistence().save(sessions).ok());

    const QJsonObject root = describe(file(BuildHistoryPersistence::fileName));
    EXPECT_EQ(keys(root), (QStringList{u"savedAt"_s, u"sessions"_s, u"version"_s}));
    EXPECT_EQ(field(root, u"version"_s), QJsonObject({{u"int"_s, u"1"_s}}));
    EXPECT_TRUE(field(root, u"savedAt"_s).contains(u"date"_s));
    const QJsonArray list = field(root, u"sessions"_s)[u"array"_s].toArray();
    ASSERT_EQ(list.size(), 2);

    const QJsonObject session = list[0].toObject();
    const BuildSession& expected = sessions[0];
    EXPECT_EQ(text(field(session, u"id"_s)), expected.id.toString(QUuid::WithoutBraces).toUpper());
    // plistlib keeps microseconds.
    EXPECT_NEAR(field(session, u"startedAt"_s)[u"date"_s].toDouble(),
                expected.startedAt.secondsSinceReferenceDate, 1e-6);
    EXPECT_EQ(text(field(session, u"projectName"_s)), expected.projectName);
    // Absent optionals are left out: sampleSession(0) has no log path, and its
    // diagnostics have everything (0), no line (2), and no file, line or column (3).
    EXPECT_EQ(keys(session), (QStringList{u"comparison"_s, u"diagnostics"_s, u"id"_s, u"projectName"_s,
                                          u"sourceName"_s, u"startedAt"_s}));
    const QJsonArray diagnostics = field(session, u"diagnostics"_s)[u"array"_s].toArray();
    EXPECT_EQ(keys(diagnostics[0].toObject()), (QStringList{u"column"_s, u"filePath"_s, u"id"_s, u"line"_s, u"message"_s,
                                                            u"rawText"_s, u"severity"_s, u"timestamp"_s}));
    EXPECT_EQ(keys(diagnostics[2].toObject()), (QStringList{u"column"_s, u"filePath"_s, u"id"_s, u"message"_s,
                                                            u"rawText"_s, u"severity"_s, u"timestamp"_s}));
    EXPECT_EQ(keys(diagnostics[3].toObject()),
              (QStringList{u"id"_s, u"message"_s, u"rawText"_s, u"severity"_s, u"timestamp"_s}));

    const QJsonObject diagnostic = diagnostics[0].toObject();
    const BuildDiagnostic& d = expected.diagnostics[0];
    EXPECT_EQ(text(field(diagnostic, u"id"_s)), d.id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_EQ(text(field(diagnostic, u"severity"_s)), u"error"_s);
    EXPECT_EQ(text(field(diagnostic, u"message"_s)), d.message);
    EXPECT_EQ(text(field(diagnostic, u"filePath"_s)), *d.filePath);
    EXPECT_EQ(field(diagnostic, u"line"_s), QJsonObject({{u"int"_s, u"-3"_s}}));
    EXPECT_EQ(field(diagnostic, u"column"_s), QJsonObject({{u"int"_s, u"1099511627776"_s}}));
    EXPECT_NEAR(field(diagnostic, u"timestamp"_s)[u"date"_s].toDouble(), d.timestamp.secondsSinceReferenceDate, 1e-6);

    const QJsonObject comparison = field(session, u"comparison"_s);
    EXPECT_EQ(keys(comparison), (QStringList{u"fixedDiagnostics"_s, u"hasBaseline"_s, u"newDiagnosticIDs"_s}));
    EXPECT_EQ(field(comparison, u"hasBaseline"_s), QJsonObject({{u"bool"_s, false}}));
    QSet<QString> ids;
    for (const QJsonValue& id : field(comparison, u"newDiagnosticIDs"_s)[u"array"_s].toArray())
        ids.insert(text(id.toObject()));
    QSet<QString> expectedIDs;
    for (const QUuid& id : expected.comparison.newDiagnosticIDs)
        expectedIDs.insert(id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_EQ(ids, expectedIDs);
    EXPECT_EQ(field(comparison, u"fixedDiagnostics"_s)[u"array"_s].toArray().size(), 1);
}

TEST_F(PlistlibInteropTest, PlistlibReadsOurPreferences)
{
    ASSERT_TRUE(DiagnosticPreferencesPersistence().save({test::sampleKey(u"Ünïcødé"_s, 5)}, {}).ok());
    const QJsonObject root = describe(file(DiagnosticPreferencesPersistence::fileName));
    EXPECT_EQ(field(root, u"version"_s), QJsonObject({{u"int"_s, u"1"_s}}));
    EXPECT_EQ(field(root, u"ignored"_s), QJsonObject({{u"array"_s, QJsonArray()}}));
    const QJsonArray pinned = field(root, u"pinned"_s)[u"array"_s].toArray();
    ASSERT_EQ(pinned.size(), 1);
    EXPECT_EQ(text(field(pinned[0].toObject(), u"projectName"_s)), u"Ünïcødé"_s);
    const QJsonObject signature = field(pinned[0].toObject(), u"signature"_s);
    EXPECT_EQ(text(field(signature, u"severity"_s)), u"warning"_s);
    EXPECT_EQ(field(signature, u"line"_s), QJsonObject({{u"int"_s, u"5"_s}}));
    EXPECT_FALSE(signature[u"dict"_s].toObject().contains(u"column"_s));
}

TEST_F(PlistlibInteropTest, PlistlibReadsFilesThatNeedWideReferences)
{
    // Enough objects for 4-byte references and offsets.
    PropertyListValue::Array items;
    for (int i = 0; i < 70000; ++i)
        items.emplace_back(QStringLiteral("item %1").arg(i));
    items.emplace_back(qint64(-1) << 40);
    const QString path = env.root() + u"/wide.plist"_s;
    test::writeFile(path, BinaryPropertyListWriter::encode(PropertyListValue(std::move(items))));
    const test::PythonResult python = test::runPython(
        uR"(
import plistlib, sys
v = plistlib.load(open(sys.argv[1], "rb"))
print(len(v), v[0], v[69999], v[-1]))"_s,
        {path});
    ASSERT_TRUE(python.started);
    ASSERT_EQ(python.exitCode, 0) << python.errors.toStdString();
    EXPECT_EQ(python.output.trimmed(), QByteArray("70001 item 0 item 69999 -1099511627776"));
}

// Writes a history the way another program might: dates with microseconds,
// a session without any optional key, keys this program does not know,
// lower-case UUIDs, integers plistlib stores in 1, 2, 8 and 16 bytes, and a
// second session sharing the first one's containers, which plistlib then
// stores once.
const QString writeHistoryScript = uR"(
import datetime, json, plistlib, sys
ref = datetime.datetime(2001, 1, 1)
started = datetime.datetime(2025, 11, 23, 9, 0, 0, 123457)
stamp = datetime.datetime(1999, 12, 31, 23, 59, 59, 999999)
diag = {"id": "6f9619ff-8b86-d011-b42d-00c04fc964ff", "severity": "note",
        "message": "naïve ✓", "rawText": "raw", "timestamp": stamp,
        "line": 2**62, "column": -40, "unknown": [1, 2.5, b"x"]}
bare = {"id": "00000000-0000-0000-0000-00000000000A", "severity": "error", "message": "m",
        "rawText": "r", "timestamp": stamp, "line": 300}
session = {"id": "A2B8C3D4-0000-4000-8000-000000000001", "startedAt": started,
           "diagnostics": [diag, bare], "sourceName": "s", "projectName": "p",
           "comparison": {"hasBaseline": True, "newDiagnosticIDs": [], "fixedDiagnostics": []},
           "extra": {"nested": True}}
again = dict(session, id="A2B8C3D4-0000-4000-8000-000000000002")
archive = {"version": 1, "savedAt": started, "sessions": [session, again], "writer": "plistlib"}
with open(sys.argv[1], "wb") as f:
    plistlib.dump(archive, f, fmt=plistlib.FMT_BINARY)
print(json.dumps({"started": (started - ref).total_seconds(), "stamp": (stamp - ref).total_seconds()}))
)"_s;

TEST_F(PlistlibInteropTest, WeReadPlistlibHistory)
{
    ASSERT_TRUE(QDir().mkpath(env.appFolder()));
    const test::PythonResult python =
        test::runPython(writeHistoryScript, {file(BuildHistoryPersistence::fileName)});
    ASSERT_TRUE(python.started);
    ASSERT_EQ(python.exitCode, 0) << python.errors.toStdString();
    const QJsonObject times = QJsonDocument::fromJson(python.output).object();

    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    ASSERT_TRUE(loaded.ok());
    ASSERT_EQ(loaded.value().size(), 2);
    const BuildSession& s = loaded.value()[0];
    EXPECT_EQ(loaded.value()[1].id, QUuid::fromString(u"A2B8C3D4-0000-4000-8000-000000000002"_s));
    EXPECT_EQ(loaded.value()[1].comparison, s.comparison);
    EXPECT_EQ(loaded.value()[1].diagnostics, s.diagnostics);
    EXPECT_EQ(s.id, QUuid::fromString(u"A2B8C3D4-0000-4000-8000-000000000001"_s));
    EXPECT_EQ(s.startedAt.secondsSinceReferenceDate, times[u"started"_s].toDouble());
    EXPECT_FALSE(s.activityLogPath);
    EXPECT_TRUE(s.comparison.hasBaseline);
    ASSERT_EQ(s.diagnostics.size(), 2);

    const BuildDiagnostic& d = s.diagnostics[0];
    EXPECT_EQ(d.id, QUuid::fromString(u"6F9619FF-8B86-D011-B42D-00C04FC964FF"_s));
    EXPECT_EQ(d.severity, DiagnosticSeverity::note);
    EXPECT_EQ(d.message, u"naïve ✓"_s);
    EXPECT_FALSE(d.filePath);
    EXPECT_EQ(d.line, qint64(1) << 62);
    EXPECT_EQ(d.column, -40);
    EXPECT_EQ(d.timestamp.secondsSinceReferenceDate, times[u"stamp"_s].toDouble());
    EXPECT_LT(d.timestamp.secondsSinceReferenceDate, 0.0);

    EXPECT_EQ(s.diagnostics[1].line, 300);
    EXPECT_FALSE(s.diagnostics[1].column);
    EXPECT_EQ(s.diagnostics[1].id.toString(QUuid::WithoutBraces), u"00000000-0000-0000-0000-00000000000a"_s);
}

TEST_F(PlistlibInteropTest, WeReadPlistlibPreferences)
{
    ASSERT_TRUE(QDir().mkpath(env.appFolder()));
    const QString script = uR"(
import plistlib, sys
sig = {"severity": "warning", "message": "unused", "line": 7}
archive = {"version": 3, "pinned": [{"projectName": "App", "signature": sig},
                                    {"projectName": "Lib", "signature": sig}],
           "ignored": [{"projectName": "App", "signature": {"severity": "note", "message": "x",
                        "filePath": "/a.swift", "column": 70000}, "note": "ignored"}]}
with open(sys.argv[1], "wb") as f:
    plistlib.dump(archive, f, fmt=plistlib.FMT_BINARY)
)"_s;
    const test::PythonResult python = test::runPython(script, {file(DiagnosticPreferencesPersistence::fileName)});
    ASSERT_TRUE(python.started);
    ASSERT_EQ(python.exitCode, 0) << python.errors.toStdString();

    DiagnosticPreferenceKey pinned{u"App"_s, {DiagnosticSeverity::warning, std::nullopt, 7, std::nullopt, u"unused"_s}};
    DiagnosticPreferenceKey ignored{u"App"_s, {DiagnosticSeverity::note, u"/a.swift"_s, std::nullopt, 70000, u"x"_s}};
    const DiagnosticPreferencesPersistence::Preferences loaded = DiagnosticPreferencesPersistence().load();
    EXPECT_EQ(loaded.pinned, (QSet<DiagnosticPreferenceKey>{pinned, {u"Lib"_s, pinned.signature}}));
    EXPECT_EQ(loaded.ignored, QSet<DiagnosticPreferenceKey>{ignored});
}

} // namespace
} // namespace corvane
