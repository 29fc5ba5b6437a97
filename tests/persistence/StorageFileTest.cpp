#include "StorageFile.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace corvane {
namespace {

// Whatever stands at a path the program reads (its history, its preferences,
// a log named on the command line), reading must neither wait nor run on.
TEST(StorageFile, OnlyRegularFilesAreRead)
{
    QTemporaryDir dir;
    const QString fifo = dir.filePath(QStringLiteral("fifo"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    for (const QString& path : {fifo, QStringLiteral("/dev/zero"), dir.path()}) {
        SCOPED_TRACE(path.toStdString());
        const Result<QByteArray> bytes = StorageFile::read(path);
        ASSERT_FALSE(bytes.ok());
        EXPECT_FALSE(bytes.error().description.isEmpty());
        const Result<QString> text = StorageFile::readUtf8Text(path);
        ASSERT_FALSE(text.ok());
        EXPECT_TRUE(text.error().description.contains(QStringLiteral("could not be opened")));
    }

    const QString file = dir.filePath(QStringLiteral("build.log"));
    test::writeFile(file, "main.c:1:2: error: x\n");
    EXPECT_EQ(StorageFile::read(file).value(), QByteArray("main.c:1:2: error: x\n"));
    EXPECT_EQ(StorageFile::readUtf8Text(file).value(), QStringLiteral("main.c:1:2: error: x\n"));
}

} // namespace
} // namespace corvane
