#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace corvane {

// What the user commands need from the desktop: a file chooser, an alert, the
// clipboard, starting a program and opening a file. The application supplies
// the real one (Qt Widgets); tests supply a recording one.
class DesktopPlatform {
public:
    virtual ~DesktopPlatform() = default;

    // A modal chooser for one plain-text or log file; nothing when cancelled.
    virtual std::optional<QString> chooseLogFile(const QString& message) = 0;
    // A modal warning alert with one default button.
    virtual void showAlert(const QString& title, const QString& informativeText) = 0;
    // Replaces the clipboard's contents with the text.
    virtual void setClipboardText(const QString& text) = 0;
    // Starts the program with the arguments (no shell) without waiting;
    // false when it cannot be started.
    virtual bool startDetached(const QString& program, const QStringList& arguments) = 0;
    // Opens the file with the user's default application for it.
    virtual void openWithDefaultApplication(const QString& filePath) = 0;
};

} // namespace corvane
