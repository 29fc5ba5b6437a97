#include "BuildHistoryPersistence.h"
#include "BinaryPropertyListReader.h"
#include "BinaryPropertyListWriter.h"
#include "PersistenceTestSupport.h"
#include "PropertyListRecords.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <functional>

namespace corvane {
namespace {

using namespace Qt::StringLiterals;

using test::readFile;
using test::sampleSession;
using test::sampleSessions;
using test::writeFile;
using Dictionary = PropertyListValue::Dictionary;

class BuildHistoryPersistenceTest : public ::testing::Test {
protected:
    QString historyPath() const { return env.appFolder() + u'/' + BuildHistoryPersistence::fileName; }
    QString damagedPath() const { return env.appFolder() + u'/' + BuildHistoryPersistence::damagedFileName; }

    // The archive of the given sessions as a property-list tree, changed by
    // edit before it is written to the history file.
    void writeArchive(const QList<BuildSession>& sessions, const std::function<void(Dictionary&)>& edit = {},
                      qint64 version = 1)
    {
        Dictionary root = archiveTree({version, AbsoluteTime{1.5}, sessions});
        if (edit)
            edit(root);
        writeFile(historyPath(), BinaryPropertyListWriter::encode(PropertyListValue(std::move(root))));
    }

    // The archive as the record encoders give it, one tree node per value.
    static Dictionary archiveTree(const BuildHistoryArchive& archive)
    {
        PropertyListValue::Array list;
        for (const BuildSession& s : archive.sessions)
            list.push_back(PropertyListRecords::encode(s));
        return {{QStringLiteral("version"), PropertyListValue(archive.version)},
                {QStringLiteral("savedAt"), PropertyListRecords::encodeTime(archive.savedAt)},
                {QStringLiteral("sessions"), PropertyListValue(std::move(list))}};
    }

    // The value under key; the key must be there.
    static PropertyListValue& at(Dictionary& d, QStringView key)
    {
        return std::find_if(d.begin(), d.end(), [&](const auto& e) { return e.first == key; })->second;
    }
    static void remove(Dictionary& d, QStringView key)
    {
        std::erase_if(d, [&](const auto& e) { return e.first == key; });
    }
    static Dictionary& sessionAt(Dictionary& root, size_t i)
    {
        return *(*at(root, u"sessions").array())[i].dictionary();
    }
    static Dictionary& diagnosticAt(Dictionary& root, size_t session, size_t i)
    {
        return *(*at(sessionAt(root, session), u"diagnostics").array())[i].dictionary();
    }

    test::TestEnvironment env;
    BuildHistoryPersistence persistence;
};

// The records' == compares every field, so equal lists mean nothing was lost.
TEST_F(BuildHistoryPersistenceTest, SavedSessionsLoadBackEqual)
{
    const QList<BuildSession> sessions = sampleSessions(6, 5);
    ASSERT_TRUE(persistence.save(sessions).ok());
    EXPECT_EQ(persistence.load().value(), sessions);
}

// A copy of session with new ids whose texts are equal but, when deep, stored apart.
BuildSession rebuilt(BuildSession session, bool deep)
{
    session.id = QUuid::createUuid();
    for (BuildDiagnostic& d : session.diagnostics) {
        d.id = QUuid::createUuid();
        if (deep) {
            d.message = QString(d.message.constData(), d.message.size());
            d.rawText = QString(d.rawText.constData(), d.rawText.size());
            if (d.filePath)
                d.filePath = QString(d.filePath->constData(), d.filePath->size());
        }
    }
    return session;
}

// The archive is written straight from the records; it must hold exactly
// what the record encoders would give, in every shape a record takes, with
// wide references and with texts shared between sessions or only equal,
// over enough texts that their numbering runs ahead in several pieces.
TEST_F(BuildHistoryPersistenceTest, ArchiveHoldsWhatTheRecordEncodersGive)
{
    QList<BuildSession> sessions = sampleSessions(3, 5);
    BuildDiagnostic& odd = sessions[0].diagnostics[0];
    odd.line = -3;
    odd.column = qint64(1) << 40;
    sessions[0].diagnostics[1].line = 70000;
    // Equal time stamps side by side, then a different one.
    sessions[0].diagnostics[2].timestamp = sessions[0].diagnostics[1].timestamp;
    BuildSession big = sampleSession(7, 20000);
    sessions.append(rebuilt(big, false));
    sessions.append(rebuilt(big, true));
    sessions.append(big);
    const BuildHistoryArchive archive{1, AbsoluteTime{2.25}, sessions};

    const Result<PropertyListValue> written =
        BinaryPropertyListReader::decode(BuildHistoryPersistence::encodeArchive(archive));
    ASSERT_TRUE(written.ok()) << written.error().description.toStdString();
    EXPECT_TRUE(written.value() == PropertyListValue(archiveTree(archive)));
}

// Sessions of one project repeat their texts; each is stored once, whether
// the copies share one storage or only equal each other, also where they are
// numbered in different pieces, and is loaded as one string.
TEST_F(BuildHistoryPersistenceTest, RepeatedTextsAreStoredOnceAndLoadedAsOne)
{
    const BuildSession session = sampleSession(1, 12000);
    qsizetype textBytes = 0;
    for (const BuildDiagnostic& d : session.diagnostics)
        textBytes += 2 * (d.message.size() + d.rawText.size() + d.filePath.value_or(QString()).size());
    const BuildSession equal = rebuilt(session, true);
    const qsizetype one = BuildHistoryPersistence::encodeArchive({1, {}, {session}}).size();
    const qsizetype sharedSize =
        BuildHistoryPersistence::encodeArchive({1, {}, {rebuilt(session, false), session}}).size();
    const qsizetype equalSize = BuildHistoryPersistence::encodeArchive({1, {}, {equal, session}}).size();
    EXPECT_EQ(sharedSize, equalSize);
    EXPECT_LT(sharedSize - one, textBytes) << "the second session costs less than its texts alone";

    ASSERT_TRUE(persistence.save({equal, session}).ok());
    const QList<BuildSession> loaded = persistence.load().value();
    ASSERT_EQ(loaded.size(), 2);
    for (qsizetype i = 0; i < session.diagnostics.size(); ++i) {
        const BuildDiagnostic& a = loaded[0].diagnostics[i];
        const BuildDiagnostic& b = loaded[1].diagnostics[i];
        EXPECT_EQ(a.message.constData(), b.message.constData());
        EXPECT_EQ(a.rawText.constData(), b.rawText.constData());
    }
}

TEST_F(BuildHistoryPersistenceTest, FirstStartCreatesTheFolderAndLoadsNothing)
{
    ASSERT_FALSE(QFileInfo::exists(env.appFolder()));
    const Result<QList<BuildSession>> loaded = persistence.load();
    ASSERT_TRUE(loaded.ok());
    EXPECT_TRUE(loaded.value().isEmpty());
    EXPECT_TRUE(QFileInfo(env.appFolder()).isDir());
}

TEST_F(BuildHistoryPersistenceTest, KeepsAtMostFortySessionsOnSaveAndOnLoad)
{
    const QList<BuildSession> fortyOne = sampleSessions(41, 1);
    ASSERT_TRUE(persistence.save(fortyOne).ok());
    const Result<BuildHistoryArchive> stored = BuildHistoryPersistence::decodeArchive(readFile(historyPath()));
    ASSERT_TRUE(stored.ok());
    EXPECT_EQ(stored.value().sessions, fortyOne.first(40));
    EXPECT_EQ(stored.value().version, 1);

    const QList<BuildSession> fifty = sampleSessions(50, 1);
    writeArchive(fifty);
    const Result<QList<BuildSession>> loaded = persistence.load();
    ASSERT_TRUE(loaded.ok());
    EXPECT_EQ(loaded.value(), fifty.first(40));
}

TEST_F(BuildHistoryPersistenceTest, SavedAtIsTheTimeOfWriting)
{
    const AbsoluteTime before = AbsoluteTime::now();
    ASSERT_TRUE(persistence.save(sampleSessions(1)).ok());
    const AbsoluteTime after = AbsoluteTime::now();
    const Result<BuildHistoryArchive> stored = BuildHistoryPersistence::decodeArchive(readFile(historyPath()));
    ASSERT_TRUE(stored.ok());
    EXPECT_GE(stored.value().savedAt, before);
    EXPECT_LE(stored.value().savedAt, after);
}

TEST_F(BuildHistoryPersistenceTest, ZeroBytesOrAnotherVersionLoadEmptyAndStay)
{
    writeFile(historyPath(), {});
    EXPECT_TRUE(persistence.load().value().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(historyPath()));

    writeArchive(sampleSessions(2), {}, 2);
    const QByteArray before = readFile(historyPath());
    EXPECT_TRUE(persistence.load().value().isEmpty());
    EXPECT_EQ(readFile(historyPath()), before);
    EXPECT_FALSE(QFileInfo::exists(damagedPath()));
    // The next save replaces it.
    ASSERT_TRUE(persistence.save(sampleSessions(1)).ok());
    EXPECT_EQ(persistence.load().value().size(), 1);
}

TEST_F(BuildHistoryPersistenceTest, DamagedFileIsMovedAsideReplacingAnOlderCopy)
{
    writeFile(damagedPath(), "an older damaged history");
    QByteArray noise(4096, '\0');
    QRandomGenerator random(11);
    for (char& c : noise)
        c = char(random.bounded(256));
    writeFile(historyPath(), noise);

    const Result<QList<BuildSession>> loaded = persistence.load();
    ASSERT_TRUE(loaded.ok());
    EXPECT_TRUE(loaded.value().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(historyPath()));
    EXPECT_EQ(readFile(damagedPath()), noise);

    const QList<BuildSession> sessions = sampleSessions(2);
    ASSERT_TRUE(persistence.save(sessions).ok());
    EXPECT_EQ(persistence.load().value(), sessions);
    EXPECT_EQ(readFile(damagedPath()), noise);
}

TEST_F(BuildHistoryPersistenceTest, OneBadRecordDamagesTheWholeFile)
{
    const QList<BuildSession> sessions = sampleSessions(3, 3);
    const std::vector<std::pair<const char*, std::function<void(Dictionary&)>>> damages{
        {"session without comparison", [](Dictionary& r) { remove(sessionAt(r, 2), u"comparison"); }},
        {"capitalised severity", [](Dictionary& r) { at(diagnosticAt(r, 1, 1), u"severity") = u"Error"_s; }},
        {"id that is not a UUID", [](Dictionary& r) { at(sessionAt(r, 0), u"id") = u"not-a-uuid"_s; }},
        {"UUID in braces",
         [](Dictionary& r) { at(sessionAt(r, 0), u"id") = u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}"_s; }},
        {"line as text", [](Dictionary& r) { at(diagnosticAt(r, 0, 0), u"line") = u"12"_s; }},
        {"startedAt as a number", [](Dictionary& r) { at(sessionAt(r, 0), u"startedAt") = 785000000.0; }},
        {"hasBaseline as an integer",
         [](Dictionary& r) { at(*at(sessionAt(r, 0), u"comparison").dictionary(), u"hasBaseline") = 1; }},
        {"version missing", [](Dictionary& r) { remove(r, u"version"); }},
        {"sessions not an array", [](Dictionary& r) { at(r, u"sessions") = Dictionary{}; }},
    };
    for (const auto& [name, damage] : damages) {
        SCOPED_TRACE(name);
        QFile::remove(damagedPath());
        writeArchive(sessions, damage);
        const Result<QList<BuildSession>> loaded = persistence.load();
        ASSERT_TRUE(loaded.ok());
        EXPECT_TRUE(loaded.value().isEmpty());
        EXPECT_TRUE(QFileInfo::exists(damagedPath()));
        EXPECT_FALSE(QFileInfo::exists(historyPath()));
    }
}

TEST_F(BuildHistoryPersistenceTest, AFolderInTheFilesPlaceFailsEveryOperationAndStays)
{
    // A folder cannot be read, replaced or deleted as a file.
    writeFile(historyPath() + QStringLiteral("/inside"), "kept");
    const Result<QList<BuildSession>> loaded = persistence.load();
    ASSERT_FALSE(loaded.ok());
    EXPECT_FALSE(loaded.error().description.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(damagedPath()));
    const Result<void> saved = persistence.save(sampleSessions(1));
    ASSERT_FALSE(saved.ok());
    EXPECT_FALSE(saved.error().description.isEmpty());
    const Result<void> cleared = persistence.clear();
    ASSERT_FALSE(cleared.ok());
    EXPECT_FALSE(cleared.error().description.isEmpty());
    EXPECT_EQ(readFile(historyPath() + QStringLiteral("/inside")), QByteArray("kept"));
}

TEST_F(BuildHistoryPersistenceTest, PlainFileWhereTheFolderShouldBe)
{
    writeFile(env.appFolder(), "not a folder");
    const Result<QList<BuildSession>> loaded = persistence.load();
    ASSERT_TRUE(loaded.ok());
    EXPECT_TRUE(loaded.value().isEmpty());
    const Result<void> saved = persistence.save(sampleSessions(1));
    ASSERT_FALSE(saved.ok());
    EXPECT_FALSE(saved.error().description.isEmpty());
    EXPECT_NE(saved.error().domain, QStringLiteral("Corvane.History"));
    EXPECT_EQ(readFile(env.appFolder()), QByteArray("not a folder"));
}

TEST_F(BuildHistoryPersistenceTest, FolderThatCannotBeMadeFailsEveryOperation)
{
    // The data folder's parent is a plain file, so "Corvane" cannot be made.
    writeFile(env.dataHome(), "in the way");
    const Result<QList<BuildSession>> loaded = persistence.load();
    ASSERT_FALSE(loaded.ok());
    EXPECT_FALSE(loaded.error().description.isEmpty());
    EXPECT_FALSE(persistence.save(sampleSessions(1)).ok());
    EXPECT_FALSE(persistence.clear().ok());
}

TEST_F(BuildHistoryPersistenceTest, ClearDeletesOnlyTheHistory)
{
    EXPECT_TRUE(persistence.clear().ok()); // nothing there yet
    ASSERT_TRUE(persistence.save(sampleSessions(2)).ok());
    writeFile(damagedPath(), "old");
    ASSERT_TRUE(persistence.clear().ok());
    EXPECT_FALSE(QFileInfo::exists(historyPath()));
    EXPECT_EQ(readFile(damagedPath()), QByteArray("old"));
    EXPECT_TRUE(persistence.load().value().isEmpty());
}

} // namespace
} // namespace corvane
