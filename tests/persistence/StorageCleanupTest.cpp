#include "BuildHistoryPersistence.h"
#include "PersistenceTestSupport.h"
#include "StorageDirectory.h"
#include "StorageFile.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using test::readFile;
using test::writeFile;

const QByteArray plistStart = QByteArrayLiteral("bplist00\xD3\x01\x02");

QStringList entries(const QString& folder)
{
    QStringList names = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    names.sort();
    return names;
}

TEST(StorageCleanup, RemovesOnlyLeftoversOfOurOwnInterruptedWrites)
{
    test::TestEnvironment env;
    const QString folder = env.appFolder();
    const auto at = [&folder](const QString& name) -> QString { return folder + u'/' + name; };

    // What a killed save leaves: any prefix of the file, down to nothing.
    writeFile(at(QStringLiteral(".BuildHistory.plist.corvane-save-AbCdEf")), plistStart);
    writeFile(at(QStringLiteral(".DiagnosticPreferences.plist.corvane-save-Zz09Qq")), QByteArray());

    // What belongs to the user, or is not ours to judge: copies of our files
    // under any name, however much they look like ours.
    const QStringList kept{
        QStringLiteral("BuildHistory.plist"),
        QStringLiteral("BuildHistory.damaged.plist"),
        QStringLiteral("BuildHistory.plist.backup"),
        QStringLiteral("BuildHistory.plist.old123"),
        QStringLiteral("BuildHistory.plist.mycopy"),
        QStringLiteral(".BuildHistory.plist.AbCdEf"),
        QStringLiteral("BuildHistory.plist.corvane-save-AbCdEf"),
        QStringLiteral(".BuildHistory.plist.corvane-save-AbCdE"),
        QStringLiteral(".BuildHistory.plist.corvane-save-AbCdEfG"),
        QStringLiteral(".BuildHistory.plist.corvane-save-Ab-dEf"),
        QStringLiteral(".BuildHistory.plist.corvane-save-\u00C4bCdEf"),
        QStringLiteral(".corvane-save-AbCdEf"),
    };
    for (const QString& name : kept)
        writeFile(at(name), plistStart);
    // A link named like a leftover, pointing at a file of the user's, and a folder.
    const QString outside = env.root() + QStringLiteral("/user.plist");
    writeFile(outside, plistStart);
    ASSERT_TRUE(QFile::link(outside, at(QStringLiteral(".BuildHistory.plist.corvane-save-LnKaBc"))));
    ASSERT_TRUE(QDir().mkpath(at(QStringLiteral(".BuildHistory.plist.corvane-save-FoLdEr"))));

    EXPECT_EQ(removeInterruptedWrites(folder), 2);

    QStringList expected = kept;
    expected << QStringLiteral(".BuildHistory.plist.corvane-save-LnKaBc")
             << QStringLiteral(".BuildHistory.plist.corvane-save-FoLdEr");
    expected.sort();
    EXPECT_EQ(entries(folder), expected);
    EXPECT_EQ(readFile(outside), plistStart);
    EXPECT_EQ(removeInterruptedWrites(folder), 0) << "nothing left to remove";
}

// The sweep takes exactly what a save in progress has on disk.
TEST(StorageCleanup, WritesGoThroughATemporaryFileTheSweepRecognises)
{
    test::TestEnvironment env;
    const QString path = env.appFolder() + QStringLiteral("/BuildHistory.plist");
    writeFile(path, "previous");
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QString temporary;
    const Result<void> written = StorageFile::writeAtomically(path, [&](QIODevice& device) {
        temporary = static_cast<QFile&>(device).fileName();
        EXPECT_EQ(readFile(path), "previous") << "replaced before the write ended";
        return device.write("new") == 3;
    });
    ASSERT_TRUE(written);
    EXPECT_TRUE(StorageFile::isTemporaryName(QFileInfo(temporary).fileName())) << temporary.toStdString();
    EXPECT_EQ(readFile(path), "new");
    EXPECT_EQ(QFile::permissions(path),
              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);
    // A failed write leaves the previous file and no temporary file.
    EXPECT_FALSE(StorageFile::writeAtomically(path, [](QIODevice&) { return false; }));
    EXPECT_EQ(readFile(path), "new");
    EXPECT_EQ(entries(env.appFolder()), QStringList{QStringLiteral("BuildHistory.plist")});
}

TEST(StorageCleanup, TheFirstUseOfTheFolderSweepsItAndLaterUsesDoNot)
{
    test::TestEnvironment env;
    const QString leftover =
        env.appFolder() + u'/' + StorageFile::temporaryName(BuildHistoryPersistence::fileName, u"KiLlEd");
    const QList<BuildSession> sessions = test::sampleSessions(2);
    {
        // A history saved by an earlier run, which was then killed during its next save.
        ASSERT_TRUE(BuildHistoryPersistence().save(sessions));
    }
    writeFile(leftover, plistStart);
    // This process has already used the folder, so the leftover stays until the next start.
    ASSERT_TRUE(storageDirectory());
    EXPECT_TRUE(QFileInfo::exists(leftover));

    // A new folder (as for a new process) is swept when it is first handed out.
    test::TestEnvironment next;
    const QString nextLeftover =
        next.appFolder() + u'/' + StorageFile::temporaryName(QStringLiteral("DiagnosticPreferences.plist"), u"KiLlEd");
    writeFile(next.appFolder() + u'/' + BuildHistoryPersistence::fileName,
              readFile(env.appFolder() + u'/' + BuildHistoryPersistence::fileName));
    writeFile(nextLeftover, QByteArray());
    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded.value(), sessions);
    EXPECT_FALSE(QFileInfo::exists(nextLeftover));
    EXPECT_EQ(entries(next.appFolder()), QStringList{BuildHistoryPersistence::fileName});
}

} // namespace
} // namespace corvane
