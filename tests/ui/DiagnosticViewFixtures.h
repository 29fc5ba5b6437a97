#pragma once

#include "BuildStore.h"
#include "RecordingPlatform.h"
#include "TestEnvironment.h"

#include <QCoreApplication>
#include <QLabel>
#include <QList>
#include <QPushButton>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <memory>

namespace corvane::test {

// A store in a private home folder, fed builds of one Xcode project.
struct StoreFixture {
    TestEnvironment environment;
    RecordingPlatform platform;
    std::unique_ptr<BuildStore> store = std::make_unique<BuildStore>(&platform);
    int builds = 0;

    // Captures the lines as the next activity log of the project.
    void captureBuild(const QStringList& lines)
    {
        const QString log = environment.derivedData() + QStringLiteral("/ExampleApp-abcdef/Logs/Build/")
            + QString::number(++builds) + QStringLiteral(".xcactivitylog");
        store->captureBuild(lines.join(u'\n').toUtf8(), log);
    }
};

// Lets the views run the refreshes they queued on the store's announcements.
inline void settle()
{
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

// The texts of the labels the user can see under a widget, in no
// particular order.
inline QStringList visibleLabelTexts(const QWidget& root)
{
    QStringList texts;
    for (const QLabel* label : root.findChildren<QLabel*>()) {
        if (label->isVisibleTo(&root) && !label->text().isEmpty())
            texts.append(label->text());
    }
    return texts;
}

inline QPushButton* buttonWithText(const QWidget& root, const QString& text)
{
    for (QPushButton* button : root.findChildren<QPushButton*>()) {
        if (button->text() == text && button->isVisibleTo(&root))
            return button;
    }
    return nullptr;
}

} // namespace corvane::test
