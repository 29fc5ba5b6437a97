#include "BinaryPropertyListWriter.h"
#include "DiagnosticPreferencesPersistence.h"
#include "PersistenceTestSupport.h"
#include "PropertyListRecords.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using test::readFile;
using test::sampleKey;
using test::writeFile;
using Array = PropertyListValue::Array;
using Dictionary = PropertyListValue::Dictionary;
using Preferences = DiagnosticPreferencesPersistence::Preferences;

class DiagnosticPreferencesPersistenceTest : public ::testing::Test {
protected:
    QString path() const { return env.appFolder() + u'/' + DiagnosticPreferencesPersistence::fileName; }

    void writeArchive(const Array& pinned, const Array& ignored, qint64 version = 1)
    {
        writeFile(path(), BinaryPropertyListWriter::encode(PropertyListValue(
                              Dictionary{{QStringLiteral("version"), PropertyListValue(version)},
                                         {QStringLiteral("pinned"), PropertyListValue(pinned)},
                                         {QStringLiteral("ignored"), PropertyListValue(ignored)}})));
    }

    test::TestEnvironment env;
    DiagnosticPreferencesPersistence persistence;
};

TEST_F(DiagnosticPreferencesPersistenceTest, SavedSetsLoadBackEqual)
{
    DiagnosticPreferenceKey noFile = sampleKey(QStringLiteral("Other"), std::nullopt);
    noFile.signature.filePath.reset();
    noFile.signature.column = 9;
    const QSet<DiagnosticPreferenceKey> pinned{sampleKey(QStringLiteral("App"), 12),
                                               sampleKey(QStringLiteral("Ünïcødé"), -3), noFile};
    const QSet<DiagnosticPreferenceKey> ignored{sampleKey(QStringLiteral("App"), std::nullopt),
                                                sampleKey(QStringLiteral("App"), 12)};
    ASSERT_TRUE(persistence.save(pinned, ignored).ok());
    EXPECT_EQ(persistence.load(), (Preferences{pinned, ignored}));
}

TEST_F(DiagnosticPreferencesPersistenceTest, MissingOrDamagedFileGivesNothingAndIsKept)
{
    EXPECT_EQ(persistence.load(), Preferences{});

    const QList<QByteArray> damaged{QByteArray(), QByteArray("bplist00 but nothing else"),
                                    BinaryPropertyListWriter::encode(PropertyListValue(Array{}))};
    for (const QByteArray& bytes : damaged) {
        writeFile(path(), bytes);
        EXPECT_EQ(persistence.load(), Preferences{});
        EXPECT_EQ(readFile(path()), bytes);
    }

    // One bad key spoils the file, as for the history.
    PropertyListValue bad = PropertyListRecords::encode(sampleKey(QStringLiteral("App"), 1));
    (*(*bad.dictionary())[1].second.dictionary())[0].second = PropertyListValue(QStringLiteral("Warning"));
    writeArchive({PropertyListRecords::encode(sampleKey(QStringLiteral("App"), 2)), bad}, {});
    EXPECT_EQ(persistence.load(), Preferences{});
    EXPECT_TRUE(QFileInfo::exists(path()));

    // A folder in the file's place cannot be read either.
    QFile::remove(path());
    ASSERT_TRUE(QDir().mkpath(path()));
    EXPECT_EQ(persistence.load(), Preferences{});
}

TEST_F(DiagnosticPreferencesPersistenceTest, ReadsAnyVersionAndKeepsKeysAsStored)
{
    const DiagnosticPreferenceKey withLine = sampleKey(QStringLiteral("App"), 40);
    const DiagnosticPreferenceKey withoutLine = sampleKey(QStringLiteral("App"), std::nullopt);
    const PropertyListValue both = PropertyListRecords::encode(withLine);
    writeArchive({both, PropertyListRecords::encode(withoutLine), both}, {both}, 7);

    const Preferences loaded = persistence.load();
    // Listed twice, kept once; in both sets, kept in both.
    EXPECT_EQ(loaded.pinned, (QSet<DiagnosticPreferenceKey>{withLine, withoutLine}));
    EXPECT_EQ(loaded.ignored, (QSet<DiagnosticPreferenceKey>{withLine}));
    // The key without a line stays without one and matches only such a signature.
    DiagnosticPreferenceKey lineZero = withoutLine;
    lineZero.signature.line = 0;
    EXPECT_FALSE(loaded.pinned.contains(lineZero));
}

TEST_F(DiagnosticPreferencesPersistenceTest, SaveReplacesADamagedFileAndReportsWriteFailures)
{
    writeFile(path(), "damaged");
    const QSet<DiagnosticPreferenceKey> pinned{sampleKey(QStringLiteral("App"), 3)};
    ASSERT_TRUE(persistence.save(pinned, {}).ok());
    EXPECT_EQ(persistence.load().pinned, pinned);

    QFile::remove(path());
    ASSERT_TRUE(QDir().mkpath(path() + QStringLiteral("/inside")));
    const Result<void> saved = persistence.save(pinned, {});
    ASSERT_FALSE(saved.ok());
    EXPECT_FALSE(saved.error().description.isEmpty());
    EXPECT_TRUE(QFileInfo(path()).isDir());
}

TEST_F(DiagnosticPreferencesPersistenceTest, PlainFileWhereTheFolderShouldBe)
{
    writeFile(env.appFolder(), "not a folder");
    EXPECT_EQ(persistence.load(), Preferences{});
    EXPECT_FALSE(persistence.save({sampleKey(QStringLiteral("App"), 1)}, {}).ok());
    EXPECT_EQ(readFile(env.appFolder()), QByteArray("not a folder"));
}

} // namespace
} // namespace corvane
