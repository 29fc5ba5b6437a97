#pragma once

#include "DesktopPlatform.h"

#include <memory>

class QFileDialog;
class QWidget;

namespace corvane {

// The desktop as Qt Widgets offers it: a file dialog, a message box, the
// clipboard, detached child processes and the default application of a file.
class WidgetsDesktopPlatform : public DesktopPlatform {
public:
    std::optional<QString> chooseLogFile(const QString& message) override;
    void showAlert(const QString& title, const QString& informativeText) override;
    void setClipboardText(const QString& text) override;
    bool startDetached(const QString& program, const QStringList& arguments) override;
    void openWithDefaultApplication(const QString& filePath) override;

    // The chooser chooseLogFile runs, not yet shown.
    static std::unique_ptr<QFileDialog> logFileDialog(const QString& message, QWidget* parent = nullptr);
};

} // namespace corvane
