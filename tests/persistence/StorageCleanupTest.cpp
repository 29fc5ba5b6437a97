#include "BuildHistoryPersistence.h"
#include "PersistenceTestSupport.h"
#include "StorageDirectory.h"
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
    writeFile(at(QStringLiteral("BuildHistory.plist.AbCdEf")), plistStart);
    writeFile(at(QStringLiteral("BuildHistory.plist.QwErTy")), QByteArrayLiteral("bpl"));
    writeFile(at(QStringLiteral("DiagnosticPreferences.plist.Zz09Qq")), QByteArray());

    // What belongs to the user, or is not ours to judge.
    const QStringList kept{
        QStringLiteral("BuildHistory.plist"),
        QStringLiteral("BuildHistory.damaged.plist"),
        QStringLiteral("BuildHistory.plist.backup.plist"),
        QStringLiteral("BuildHistory.plist.AbCdEfG"),
        QStringLiteral("BuildHistory.plist.AbC"),
        QStringLiteral("BuildHistory.plist.Ab-dEf"),
        QStringLiteral("BuildHistory.plist.\u00C4bCdEf"),
        QStringLiteral("BuildHistory.plistXAbCdEf"),
        QStringLiteral("buildhistory.plist.AbCdEf"),
        QStringLiteral("Other.plist.AbCdEf"),
        QStringLiteral(".BuildHistory.plist.AbCdEf"),
    };
    for (const QString& name : kept)
        writeFile(at(name), plistStart);
    // Named like a leftover but holding something else: a note the user left.
    writeFile(at(QStringLiteral("BuildHistory.plist.readme")), QByteArrayLiteral("keep my notes"));
    // A link named like a leftover, pointing at a file of the user's.
    const QString outside = env.root() + QStringLiteral("/user.plist");
    writeFile(outside, plistStart);
    ASSERT_TRUE(QFile::link(outside, at(QStringLiteral("BuildHistory.plist.LnKaBc"))));
    ASSERT_TRUE(QDir().mkpath(at(QStringLiteral("BuildHistory.plist.FoLdEr"))));

    EXPECT_EQ(removeInterruptedWrites(folder, storedFileNames()), 3);

    QStringList expected = kept;
    expected << QStringLiteral("BuildHistory.plist.readme") << QStringLiteral("BuildHistory.plist.LnKaBc")
             << QStringLiteral("BuildHistory.plist.FoLdEr");
    expected.sort();
    EXPECT_EQ(entries(folder), expected);
    EXPECT_EQ(readFile(outside), plistStart);
    EXPECT_EQ(readFile(at(QStringLiteral("BuildHistory.plist.readme"))), QByteArrayLiteral("keep my notes"));

    EXPECT_EQ(removeInterruptedWrites(folder, storedFileNames()), 0) << "nothing left to remove";
    EXPECT_EQ(removeInterruptedWrites(folder, {}), 0);
}

TEST(StorageCleanup, TheFirstUseOfTheFolderSweepsItAndLaterUsesDoNot)
{
    test::TestEnvironment env;
    const QString leftover = env.appFolder() + QStringLiteral("/BuildHistory.plist.KiLlEd");
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
    const QString nextLeftover = next.appFolder() + QStringLiteral("/DiagnosticPreferences.plist.KiLlEd");
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
