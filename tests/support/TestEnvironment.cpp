#include "TestEnvironment.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTimer>

#include <gtest/gtest.h>

namespace corvane::test {

TestEnvironment::TestEnvironment()
{
    set("HOME", home());
    set("XDG_DATA_HOME", dataHome());
    set("XDG_CONFIG_HOME", configHome());
    // Per-user sockets (the single-instance check) stay inside the test's folder.
    QDir().mkpath(runtimeDir());
    QFile::setPermissions(runtimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    set("XDG_RUNTIME_DIR", runtimeDir());
    QDir().mkpath(home());
    QDir().mkpath(configHome());
    // QSettings reads XDG_CONFIG_HOME once per process; point it here each time.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, configHome());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, configHome());
}

TestEnvironment::~TestEnvironment()
{
    for (const auto& [name, value] : m_saved) {
        if (value)
            qputenv(name.constData(), *value);
        else
            qunsetenv(name.constData());
    }
}

void TestEnvironment::set(const char* name, const QString& value)
{
    if (!m_saved.count(name))
        m_saved[name] = qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt;
    qputenv(name, value.toLocal8Bit());
}

QString TestEnvironment::root() const { return m_dir.path(); }
QString TestEnvironment::home() const { return m_dir.path() + QStringLiteral("/home"); }
QString TestEnvironment::dataHome() const { return m_dir.path() + QStringLiteral("/data"); }
QString TestEnvironment::configHome() const { return m_dir.path() + QStringLiteral("/config"); }
QString TestEnvironment::runtimeDir() const { return m_dir.path() + QStringLiteral("/run"); }
QString TestEnvironment::derivedData() const
{
    return home() + QStringLiteral("/Library/Developer/Xcode/DerivedData");
}
QString TestEnvironment::appFolder() const { return dataHome() + QStringLiteral("/Corvane"); }

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

QByteArray gzipBytes(const QByteArray& bytes)
{
    QProcess gzip;
    gzip.start(QStringLiteral("/usr/bin/gzip"), {QStringLiteral("-c")});
    gzip.write(bytes);
    gzip.closeWriteChannel();
    gzip.waitForFinished(-1);
    return gzip.readAllStandardOutput();
}

bool waitUntil(const std::function<bool()>& condition, int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    QEventLoop loop;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (condition() || deadline.hasExpired())
            loop.quit();
    });
    tick.start(5);
    loop.exec();
    return condition();
}

} // namespace corvane::test
