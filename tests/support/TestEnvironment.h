#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <map>
#include <optional>

namespace corvane::test {

// Points HOME, XDG_DATA_HOME and XDG_CONFIG_HOME at folders inside a fresh
// temporary folder for the life of the object, so no test touches the user's
// real files, and puts the old values back afterwards.
class TestEnvironment {
public:
    TestEnvironment();
    ~TestEnvironment();
    TestEnvironment(const TestEnvironment&) = delete;
    TestEnvironment& operator=(const TestEnvironment&) = delete;

    QString root() const;
    QString home() const;
    QString dataHome() const;
    QString configHome() const;
    QString runtimeDir() const;
    // $HOME/Library/Developer/Xcode/DerivedData (not created).
    QString derivedData() const;
    // $XDG_DATA_HOME/Corvane (not created).
    QString appFolder() const;

private:
    void set(const char* name, const QString& value);

    QTemporaryDir m_dir;
    std::map<QByteArray, std::optional<QByteArray>> m_saved;
};

// Writes bytes to a file, creating its folders. Fails the test on error.
void writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);
// gzip-compresses bytes with the system's gzip.
QByteArray gzipBytes(const QByteArray& bytes);

// Runs the event loop until the condition holds or the time is up; says
// whether it holds.
bool waitUntil(const std::function<bool()>& condition, int milliseconds = 2000);
// Runs the event loop for the whole time.
inline void runEventsFor(int milliseconds)
{
    waitUntil([] { return false; }, milliseconds);
}

} // namespace corvane::test
