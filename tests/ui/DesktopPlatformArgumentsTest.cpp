#include "TestEnvironment.h"
#include "WidgetsDesktopPlatform.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

#include <gtest/gtest.h>

namespace corvane {
namespace {

// "Open in Xcode" hands paths from build logs to a program; whatever they hold
// must arrive as one argument each, with no shell to split, expand or run
// anything in them.
TEST(WidgetsDesktopPlatformArguments, ReachTheProgramExactlyAsGiven)
{
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    ASSERT_FALSE(python.isEmpty()) << "python3 records the arguments";
    test::TestEnvironment environment;
    const QString record = environment.root() + QStringLiteral("/arguments.json");
    const QString planted = environment.root() + QStringLiteral("/PLANTED");
    const QStringList hostile{
        QStringLiteral("xed"),
        QStringLiteral("--line"),
        QStringLiteral("12"),
        QStringLiteral("/Users/dev/-rf Project/Sources/-x.swift"),
        QStringLiteral("/Users/dev/It's \"Quoted\"/$(touch %1); `touch %1` & *.swift").arg(planted),
        QStringLiteral("\u00DCn\u00EFc\u00F8d\u00E9 \u65E5\u672C \U0001F525 Cafe\u0301"),
        QString(),
        QStringLiteral("  "),
    };
    // Writes its arguments after the record's path as JSON, with ASCII escapes.
    const QString script = QStringLiteral(
        "import json, sys\n"
        "with open(sys.argv[1] + '.part', 'w') as f: json.dump(sys.argv[2:], f)\n"
        "import os; os.rename(sys.argv[1] + '.part', sys.argv[1])\n");

    WidgetsDesktopPlatform platform;
    ASSERT_TRUE(platform.startDetached(python, QStringList{QStringLiteral("-c"), script, record} + hostile));
    const QDeadlineTimer deadline(30000);
    while (!QFileInfo::exists(record) && !deadline.hasExpired())
        QThread::msleep(20);
    ASSERT_TRUE(QFileInfo::exists(record));

    QStringList received;
    for (const QJsonValue& value : QJsonDocument::fromJson(test::readFile(record)).array())
        received.append(value.toString());
    EXPECT_EQ(received, hostile);
    EXPECT_FALSE(QFileInfo::exists(planted)) << "something ran a command inside an argument";
}

} // namespace
} // namespace corvane
