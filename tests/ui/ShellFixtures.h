#pragma once

#include "BuildStore.h"
#include "ContentView.h"
#include "DiagnosticViewFixtures.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QMenu>
#include <QStackedWidget>

#include <gtest/gtest.h>

#include <memory>

namespace corvane::test {

// A whole window on a store in a private home folder, with builds of any
// project captured the way the watcher delivers them.
struct WindowFixture : StoreFixture {
    std::unique_ptr<ContentView> window;

    ContentView& open()
    {
        window = std::make_unique<ContentView>(*store, platform);
        window->resize(1280, 800);
        return *window;
    }

    void capture(const QString& project, const QStringList& lines)
    {
        const QString log = environment.derivedData() + u'/' + project + QStringLiteral("-hash/Logs/Build/")
            + QString::number(++builds) + QStringLiteral(".xcactivitylog");
        store->captureBuild(lines.join(u'\n').toUtf8(), log);
        settle();
    }

    template <typename T>
    T* find(const QString& name) const
    {
        return window->findChild<T*>(name);
    }
    QString text(const QString& labelName) const { return find<QLabel>(labelName)->text(); }
    bool shows(const QString& name) const
    {
        const QWidget* widget = find<QWidget>(name);
        return widget && widget->isVisibleTo(window.get());
    }
    QString currentPage(const QString& stackName) const
    {
        return find<QStackedWidget>(stackName)->currentWidget()->objectName();
    }
    void click(const QString& buttonName)
    {
        find<QAbstractButton>(buttonName)->click();
        settle();
    }
    // Picks an item of a header picker as the user would.
    void choose(const QString& pickerName, const QString& itemText)
    {
        auto* picker = find<QComboBox>(pickerName);
        const int index = picker->findText(itemText);
        ASSERT_GE(index, 0) << itemText.toStdString();
        picker->setCurrentIndex(index);
        Q_EMIT picker->activated(index);
        settle();
    }
    QAction* menuItem(const QString& menuName, const QString& itemText) const
    {
        for (QAction* action : find<QMenu>(menuName)->actions()) {
            if (action->text() == itemText)
                return action;
        }
        return nullptr;
    }
    void trigger(const QString& menuName, const QString& itemText)
    {
        QAction* action = menuItem(menuName, itemText);
        ASSERT_NE(action, nullptr) << itemText.toStdString();
        action->trigger();
        settle();
    }
};

// The same, opened before each test.
struct OpenWindow : ::testing::Test, WindowFixture {
    OpenWindow() { open(); }
};

inline QString error(int line)
{
    return QStringLiteral("/src/App/File%1.swift:%1:3: error: failure number %1").arg(line);
}

inline QString warning(int line)
{
    return QStringLiteral("/src/App/File%1.swift:%1:3: warning: suspicious code number %1").arg(line);
}

} // namespace corvane::test
