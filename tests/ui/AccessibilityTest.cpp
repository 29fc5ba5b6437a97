#include "DiagnosticListView.h"
#include "ShellFixtures.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QListView>
#include <QTest>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

class AccessibilityTest : public OpenWindow {
protected:
    QAccessibleInterface* of(const QString& name) const
    {
        QObject* object = name.isEmpty() ? static_cast<QObject*>(window.get()) : find<QObject>(name);
        EXPECT_NE(object, nullptr) << name.toStdString();
        return QAccessible::queryAccessibleInterface(object);
    }
    static QString name(QAccessibleInterface* iface) { return iface->text(QAccessible::Name); }
    // The list's row announcing the message.
    QAccessibleInterface* row(const QString& message) const
    {
        QAccessibleInterface* list = QAccessible::queryAccessibleInterface(
            find<DiagnosticListView>(QStringLiteral("diagnosticList"))->listView());
        for (int i = 0; i < list->childCount(); ++i) {
            if (name(list->child(i)) == message)
                return list->child(i);
        }
        ADD_FAILURE() << "no row " << message.toStdString();
        return list;
    }
};

TEST_F(AccessibilityTest, TheWindowIsAFrameNamedAfterTheProgram)
{
    QAccessibleInterface* frame = of({});
    EXPECT_EQ(frame->role(), QAccessible::Window);
    EXPECT_EQ(name(frame), QStringLiteral("Corvane"));
}

TEST_F(AccessibilityTest, MenuButtonsOpenTheirMenusAndTheProjectButtonSaysWhichProject)
{
    capture(QStringLiteral("ExampleApp"), {error(1)});
    for (const auto& [button, menu] :
         {std::pair{QStringLiteral("optionsButton"), QStringLiteral("optionsMenu")},
          std::pair{QStringLiteral("projectFocusButton"), QStringLiteral("projectFocusMenu")}}) {
        QAccessibleInterface* iface = of(button);
        EXPECT_EQ(iface->role(), QAccessible::ButtonMenu);
        EXPECT_TRUE(iface->state().hasPopup);
        QAccessibleActionInterface* actions = iface->actionInterface();
        ASSERT_NE(actions, nullptr);
        ASSERT_TRUE(actions->actionNames().contains(QAccessibleActionInterface::showMenuAction()));
        actions->doAction(QAccessibleActionInterface::showMenuAction());
        auto* shown = find<QMenu>(menu);
        EXPECT_TRUE(shown->isVisible()) << button.toStdString();
        EXPECT_TRUE(iface->state().expanded);
        shown->close();
        settle();
    }
    // The focus menu was filled as it opened.
    EXPECT_NE(menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("ExampleApp")), nullptr);

    EXPECT_EQ(name(of(QStringLiteral("optionsButton"))), QStringLiteral("Options"));
    EXPECT_EQ(name(of(QStringLiteral("projectFocusButton"))), QStringLiteral("Project: ALL PROJECTS"));
    store->setFocusedProject(QStringLiteral("ExampleApp"));
    settle();
    EXPECT_EQ(name(of(QStringLiteral("projectFocusButton"))), QStringLiteral("Project: EXAMPLEAPP"));
}

TEST_F(AccessibilityTest, PickersAreNamedByWhatTheyChooseAndShowTheirChoiceAsValue)
{
    choose(QStringLiteral("severityPicker"), QStringLiteral("Warnings"));
    QAccessibleInterface* warnings = of(QStringLiteral("warningsPicker"));
    QAccessibleInterface* severity = of(QStringLiteral("severityPicker"));
    EXPECT_EQ(warnings->role(), QAccessible::ComboBox);
    EXPECT_EQ(name(warnings), QStringLiteral("Warnings"));
    EXPECT_EQ(name(severity), QStringLiteral("Severity"));
    EXPECT_EQ(warnings->text(QAccessible::Value), QStringLiteral("Warnings"));
    EXPECT_EQ(severity->text(QAccessible::Value), QStringLiteral("Warnings"));

    auto* picker = find<QComboBox>(QStringLiteral("severityPicker"));
    EXPECT_EQ(severity->childCount(), 1);
    EXPECT_EQ(severity->child(0)->object(), picker->view());
    severity->actionInterface()->doAction(QAccessibleActionInterface::showMenuAction());
    EXPECT_TRUE(picker->view()->isVisible());
    EXPECT_TRUE(severity->state().expanded);
    picker->hidePopup();
}

TEST_F(AccessibilityTest, RowsDescribeSeverityStateAndLocation)
{
    capture(QStringLiteral("ExampleApp"), {error(1), warning(2)});
    capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    for (const BuildDiagnostic& d : store->visibleDiagnostics()) {
        if (d.message.endsWith(QStringLiteral("number 2")))
            store->togglePin(d);
    }
    settle();
    const struct {
        QString message;
        QString description;
    } cases[] = {
        {QStringLiteral("failure number 1"), QStringLiteral("Error, FIXED, File1.swift:1:3")},
        {QStringLiteral("suspicious code number 3"), QStringLiteral("Warning, NEW, File3.swift:3:3")},
        {QStringLiteral("suspicious code number 2"), QStringLiteral("Warning, PINNED, File2.swift:2:3")},
    };
    for (const auto& c : cases) {
        QAccessibleInterface* cell = row(c.message);
        EXPECT_EQ(cell->role(), QAccessible::ListItem);
        EXPECT_EQ(cell->text(QAccessible::Description), c.description) << c.message.toStdString();
    }
}

TEST_F(AccessibilityTest, EveryTabStopIsNamedAndTheDetailTextsAreLabelledByTheirCaptions)
{
    capture(QStringLiteral("ExampleApp"), {error(1), warning(2)});
    capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    ASSERT_TRUE(store->selectedDiagnostic());
    window->show();
    settle();

    QStringList stops;
    for (QWidget* w = window->nextInFocusChain(); w != window.get(); w = w->nextInFocusChain()) {
        if (!w->isVisibleTo(window.get()) || !w->isEnabled() || !(w->focusPolicy() & Qt::TabFocus) || w->focusProxy())
            continue;
        QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(w);
        stops.append(name(iface));
        EXPECT_FALSE(name(iface).isEmpty()) << w->metaObject()->className() << ' ' << w->objectName().toStdString();
        EXPECT_NE(iface->role(), QAccessible::Client) << w->metaObject()->className();
    }
    EXPECT_GT(stops.size(), 10);

    for (const auto& [text, caption] : {std::pair{QStringLiteral("diagnosticMessage"), QStringLiteral("DIAGNOSTIC")},
                                        std::pair{QStringLiteral("rawOutput"), QStringLiteral("RAW BUILD OUTPUT")}}) {
        QAccessibleInterface* iface = of(text);
        EXPECT_EQ(name(iface), caption);
        const auto labels = iface->relations(QAccessible::Label);
        ASSERT_EQ(labels.size(), 1) << text.toStdString();
        EXPECT_EQ(name(labels.first().first), caption);
    }
}

} // namespace
