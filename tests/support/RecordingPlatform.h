#pragma once

#include "DesktopPlatform.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <ostream>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace corvane::test {

// Remembers what the code asked of the desktop and answers from its fields.
class RecordingPlatform : public DesktopPlatform {
public:
    struct Launch {
        QString program;
        QStringList arguments;
    };

    std::optional<QString> chosenFile;
    bool canStartPrograms = true;

    QStringList chooserMessages;
    QList<std::pair<QString, QString>> alerts;
    QString clipboard;
    int clipboardWrites = 0;
    QList<Launch> launches;
    QStringList openedWithDefaultApplication;

    std::optional<QString> chooseLogFile(const QString& message) override
    {
        chooserMessages.append(message);
        return chosenFile;
    }
    void showAlert(const QString& title, const QString& informativeText) override
    {
        alerts.append({title, informativeText});
    }
    void setClipboardText(const QString& text) override
    {
        clipboard = text;
        ++clipboardWrites;
    }
    bool startDetached(const QString& program, const QStringList& arguments) override
    {
        launches.append({program, arguments});
        return canStartPrograms;
    }
    void openWithDefaultApplication(const QString& filePath) override
    {
        openedWithDefaultApplication.append(filePath);
    }
};

} // namespace corvane::test
