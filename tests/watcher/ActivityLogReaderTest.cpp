#include "ActivityLogReader.h"
#include "ReadableTextExtractor.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <limits>

namespace corvane {
namespace {

using test::gzipBytes;
using test::writeFile;

const QString decompressPrefix = QStringLiteral("Could not decompress Xcode activity log: ");

// The pieces readActivityLogInPieces hands over, joined.
Result<QByteArray> joinedPieces(const QString& path)
{
    QByteArray joined;
    const Result<void> read =
        readActivityLogInPieces(path, std::numeric_limits<qint64>::max(), [&](QByteArrayView piece) {
            EXPECT_FALSE(piece.isEmpty());
            joined += piece;
        });
    if (!read)
        return read.error();
    return joined;
}

class ActivityLogReaderTest : public ::testing::Test {
protected:
    QString logWith(const QByteArray& bytes, const QString& name = QStringLiteral("build.xcactivitylog"))
    {
        const QString path = m_dir.filePath(name);
        writeFile(path, bytes);
        return path;
    }

    QTemporaryDir m_dir;
};

TEST_F(ActivityLogReaderTest, FilesWithoutTheGzipSignatureAreTakenAsTheyAre)
{
    // Each of these would make gzip fail, so a success shows it was not run:
    // empty, one byte, and each half of the signature without the other.
    const QByteArray files[] = {QByteArray(), QByteArray("\x1F"),
                                QByteArray("\x1F"
                                           "ABCD\x1F\x8Bxyz"),
                                QByteArray("Z\x8B"
                                           "ok\r"),
                                QByteArray("main.m:3:1: error: expected ';'\rCompileC main.o\r")};
    for (const QByteArray& bytes : files) {
        const auto text = readActivityLog(logWith(bytes));
        ASSERT_TRUE(text.ok()) << text.error().description.toStdString();
        EXPECT_EQ(text.value(), extractReadableText(bytes));
        EXPECT_EQ(joinedPieces(logWith(bytes)).value(), text.value());
    }
}

TEST_F(ActivityLogReaderTest, CompressedLogsGiveTheirReadableRuns)
{
    const QByteArray payload = QByteArray("SLF0\x01\x02"
                                          "12#",
                                          9)
        + "31\"main.m:3:1: error: expected ';'" + QByteArray("\0\0\x05", 3) + "ok\x06" + "warning: unused\r";
    const auto text = readActivityLog(logWith(gzipBytes(payload)));
    ASSERT_TRUE(text.ok()) << text.error().description.toStdString();
    EXPECT_EQ(text.value(), QByteArray("SLF0\n12#31\"main.m:3:1: error: expected ';'\nwarning: unused\r\n"));

    const auto raw = decompressActivityLog(logWith(gzipBytes(payload), QStringLiteral("second.xcactivitylog")));
    ASSERT_TRUE(raw.ok());
    EXPECT_EQ(raw.value(), payload);
}

TEST_F(ActivityLogReaderTest, LargeLogsStreamThroughGzipUnchanged)
{
    // Several megabytes: many pipe buffers, so runs and multibyte characters
    // are cut at arbitrary chunk boundaries on the way.
    QRandomGenerator random(7);
    QByteArray payload;
    while (payload.size() < 6 * 1024 * 1024) {
        payload += QByteArray("CompileC /Users/dev/Projekt \xC3\xA9t\xC3\xA9/").repeated(random.bounded(1, 400));
        payload += char(random.bounded(0, 9));
        payload += QByteArray(random.bounded(0, 6), 'x');
        payload += '\x7F';
    }
    const auto text = readActivityLog(logWith(gzipBytes(payload)));
    ASSERT_TRUE(text.ok()) << text.error().description.toStdString();
    EXPECT_EQ(text.value(), extractReadableText(payload));
    EXPECT_EQ(joinedPieces(logWith(gzipBytes(payload))).value(), text.value());
    QList<QByteArray> blocks;
    ASSERT_TRUE(readActivityLogInBlocks(
                    logWith(gzipBytes(payload)), [&](QByteArray block) { blocks.append(block); }, 1 << 20)
                    .ok());
    EXPECT_GE(blocks.size(), 5);
    EXPECT_EQ(blocks.join(), text.value());
    // A plain file of that size is read in pieces as well.
    EXPECT_EQ(joinedPieces(logWith(payload, QStringLiteral("plain.log"))).value(), text.value());
}

TEST_F(ActivityLogReaderTest, AnyNonZeroGzipStatusIsAFailure)
{
    const QByteArray compressed = gzipBytes(QByteArray("readable build output\r").repeated(2000));

    // A truncated file: gzip writes what it could and exits with 1.
    const auto truncated = readActivityLog(logWith(compressed.left(compressed.size() / 2)));
    ASSERT_FALSE(truncated.ok());
    EXPECT_EQ(truncated.error().domain, QStringLiteral("Corvane.ActivityLog"));
    EXPECT_EQ(truncated.error().code, 1);
    EXPECT_TRUE(truncated.error().description.startsWith(decompressPrefix))
        << truncated.error().description.toStdString();
    // gzip's own message follows, trailing line break included.
    EXPECT_GT(truncated.error().description.size(), decompressPrefix.size());
    EXPECT_TRUE(truncated.error().description.endsWith(QLatin1Char('\n')));

    // Trailing garbage: all the data comes out, gzip warns and exits with 2.
    const auto garbage = readActivityLog(logWith(compressed + "trailing garbage", QStringLiteral("g.xcactivitylog")));
    ASSERT_FALSE(garbage.ok());
    EXPECT_EQ(garbage.error().domain, QStringLiteral("Corvane.ActivityLog"));
    EXPECT_EQ(garbage.error().code, 2);
    EXPECT_TRUE(garbage.error().description.startsWith(decompressPrefix));

    const auto direct = decompressActivityLog(m_dir.filePath(QStringLiteral("g.xcactivitylog")));
    ASSERT_FALSE(direct.ok());
    EXPECT_EQ(direct.error().code, 2);
    EXPECT_EQ(joinedPieces(m_dir.filePath(QStringLiteral("g.xcactivitylog"))).error(), garbage.error());
}

TEST_F(ActivityLogReaderTest, MissingAndSpecialFilesFailAtOnce)
{
    // A FIFO swapped in for a log would block the open for good, /dev/zero
    // would never end.
    const QString fifo = m_dir.filePath(QStringLiteral("fifo.xcactivitylog"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    for (const QString& path :
         {m_dir.filePath(QStringLiteral("gone.xcactivitylog")), fifo, QStringLiteral("/dev/zero")}) {
        const auto failed = readActivityLog(path);
        ASSERT_FALSE(failed.ok()) << path.toStdString();
        EXPECT_NE(failed.error().domain, QStringLiteral("Corvane.ActivityLog"));
        EXPECT_FALSE(failed.error().description.isEmpty());
    }
}

TEST_F(ActivityLogReaderTest, TextBeyondTheLimitFails)
{
    const QByteArray text = QByteArray("warning: x\r").repeated(300 * 1024);
    const qint64 limit = text.size() / 2;
    for (const QByteArray& file : {text, gzipBytes(text)}) {
        const auto read = readActivityLog(logWith(file), limit);
        ASSERT_FALSE(read.ok());
        EXPECT_EQ(read.error().domain, QStringLiteral("Corvane.ActivityLog"));
        EXPECT_EQ(read.error().code, activityLogError::tooLarge);
    }
    EXPECT_TRUE(readActivityLog(logWith(gzipBytes(text)), text.size() + 1).ok());
}

// Quitting must not wait for a long decompression: a read under way fails at
// once, and so does every later one. The flag is for the whole process, hence
// a child process of its own.
TEST_F(ActivityLogReaderTest, AbandonedReadsEndTheirGzip)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // A gigabyte of zeros in 64 members: seconds of work for gzip, no text.
    const QString path = logWith(gzipBytes(QByteArray(16 * 1024 * 1024, '\0')).repeated(64));
    const auto abandonMidway = [&] {
        std::thread reader([&] {
            const auto read = readActivityLog(path);
            std::exit(!read.ok() && read.error().code == activityLogError::abandoned ? 0 : 1);
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        abandonActivityLogReads();
        reader.join();
    };
    EXPECT_EXIT(abandonMidway(), ::testing::ExitedWithCode(0), "");

    const auto readAfterwards = [&] {
        abandonActivityLogReads();
        const auto read = readActivityLog(logWith(gzipBytes("late build\r"), QStringLiteral("late.xcactivitylog")));
        std::exit(!read.ok() && read.error().code == activityLogError::abandoned ? 0 : 1);
    };
    EXPECT_EXIT(readAfterwards(), ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace corvane
