#include "WidgetsDesktopPlatform.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QProcess>
#include <QUrl>

namespace corvane {

std::optional<QString> WidgetsDesktopPlatform::chooseLogFile(const QString& message)
{
    // The dialog has no message line of its own; its title carries the message.
    QFileDialog dialog(QApplication::activeWindow(), message);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setNameFilters({QStringLiteral("Plain text and log files (*.txt *.text *.log)"),
                           QStringLiteral("All files (*)")});
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    const QStringList files = dialog.selectedFiles();
    if (files.isEmpty())
        return std::nullopt;
    return files.first();
}

void WidgetsDesktopPlatform::showAlert(const QString& title, const QString& informativeText)
{
    QMessageBox box(QMessageBox::Warning, title, title, QMessageBox::Ok, QApplication::activeWindow());
    box.setInformativeText(informativeText);
    box.setDefaultButton(QMessageBox::Ok);
    box.exec();
}

void WidgetsDesktopPlatform::setClipboardText(const QString& text)
{
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text);
}

bool WidgetsDesktopPlatform::startDetached(const QString& program, const QStringList& arguments)
{
    return QProcess::startDetached(program, arguments);
}

void WidgetsDesktopPlatform::openWithDefaultApplication(const QString& filePath)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(filePath));
}

} // namespace corvane
