#include "WidgetsDesktopPlatform.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QUrl>

namespace corvane {

std::unique_ptr<QFileDialog> WidgetsDesktopPlatform::logFileDialog(const QString& message, QWidget* parent)
{
    auto dialog = std::make_unique<QFileDialog>(parent);
    // The desktop's own chooser has no place for a message line; Qt's has
    // a layout to add one to. The title stays the dialog's default.
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setMimeTypeFilters({QStringLiteral("text/plain"), QStringLiteral("text/x-log")});
    auto* label = new QLabel(message, dialog.get());
    label->setObjectName(QStringLiteral("chooserMessage"));
    label->setWordWrap(true);
    if (auto* grid = qobject_cast<QGridLayout*>(dialog->layout()))
        grid->addWidget(label, grid->rowCount(), 0, 1, grid->columnCount());
    return dialog;
}

std::optional<QString> WidgetsDesktopPlatform::chooseLogFile(const QString& message)
{
    const std::unique_ptr<QFileDialog> dialog = logFileDialog(message, QApplication::activeWindow());
    if (dialog->exec() != QDialog::Accepted)
        return std::nullopt;
    const QStringList files = dialog->selectedFiles();
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
