#include "AccessibleInterfaces.h"

#include "ContentView.h"
#include "HeaderMenuButton.h"
#include "PickerBox.h"

#include <QAbstractItemView>
#include <QAccessibleWidget>
#include <QMenu>

namespace corvane {

namespace {

// A header button whose press and "show menu" actions both open its menu.
// The menu pops up without waiting to be closed, so an assistive client's
// call returns while the menu is open.
class MenuButtonInterface : public QAccessibleWidget {
public:
    explicit MenuButtonInterface(HeaderMenuButton* button) : QAccessibleWidget(button, QAccessible::ButtonMenu) {}

    QString text(QAccessible::Text kind) const override
    {
        if (kind != QAccessible::Name)
            return QAccessibleWidget::text(kind);
        // What the button is for, then what its label shows.
        const QString name = button()->accessibleName();
        const QString label = button()->text();
        if (label.isEmpty() || name.isEmpty())
            return name.isEmpty() ? label : name;
        return name + QStringLiteral(": ") + label;
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.hasPopup = true;
        state.expandable = true;
        state.expanded = button()->menu() && button()->menu()->isVisible();
        return state;
    }

    QStringList actionNames() const override
    {
        if (!button()->isEnabled() || !button()->menu())
            return {};
        return {showMenuAction(), pressAction()};
    }

    void doAction(const QString& action) override
    {
        if (!actionNames().contains(action))
            return;
        button()->menu()->popup(button()->mapToGlobal(QPoint(0, button()->height())));
    }

private:
    HeaderMenuButton* button() const { return static_cast<HeaderMenuButton*>(widget()); }
};

// A picker named by what it chooses, with its current item as its value and
// its list as its one child.
class PickerInterface : public QAccessibleWidget {
public:
    explicit PickerInterface(PickerBox* picker) : QAccessibleWidget(picker, QAccessible::ComboBox) {}

    QString text(QAccessible::Text kind) const override
    {
        if (kind == QAccessible::Value)
            return picker()->currentText();
        return QAccessibleWidget::text(kind);
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.hasPopup = true;
        state.expandable = true;
        state.expanded = picker()->view()->isVisible();
        return state;
    }

    int childCount() const override { return 1; }
    QAccessibleInterface* child(int index) const override
    {
        return index == 0 ? QAccessible::queryAccessibleInterface(picker()->view()) : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        return child && child->object() == picker()->view() ? 0 : -1;
    }

    QStringList actionNames() const override
    {
        if (!picker()->isEnabled())
            return {};
        return {showMenuAction(), pressAction()};
    }

    void doAction(const QString& action) override
    {
        if (actionNames().contains(action))
            picker()->showPopup();
    }

private:
    PickerBox* picker() const { return static_cast<PickerBox*>(widget()); }
};

QAccessibleInterface* interfaceFor(const QString& className, QObject* object)
{
    // Asked once per class of the object's hierarchy, most derived first.
    if (className == QLatin1String(ContentView::staticMetaObject.className()))
        return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Window, QStringLiteral("Corvane"));
    if (className == QLatin1String(HeaderMenuButton::staticMetaObject.className()))
        return new MenuButtonInterface(static_cast<HeaderMenuButton*>(object));
    if (className == QLatin1String(PickerBox::staticMetaObject.className()))
        return new PickerInterface(static_cast<PickerBox*>(object));
    return nullptr;
}

} // namespace

void installAccessibleInterfaces()
{
    static const bool installed = [] {
        QAccessible::installFactory(&interfaceFor);
        return true;
    }();
    Q_UNUSED(installed);
}

} // namespace corvane
