#pragma once

#include "BuildStore.h"

#include <QColor>
#include <QWidget>

class QAction;
class QLabel;
class QMenu;

namespace corvane {

class CountChip;
class HeaderMenuButton;
class PickerBox;
class SearchField;
class StatusDot;
class StoreRefresh;

// The bar across the top of the window: brand and capture status, the NEW
// and FIXED counters, project focus, the two filter menus, the search field
// and the options menu. It shows the store and calls its operations.
class HeaderBar : public QWidget {
    Q_OBJECT

public:
    explicit HeaderBar(BuildStore& store, QWidget* parent = nullptr);

    static QColor captureStatusColor(const BuildStore::CaptureState& state);

    void focusSearchField();
    // Window buttons of the program's own, at the bar's trailing end.
    void addWindowControls(QWidget* controls);
    // Room at the leading end for the system's window buttons.
    void setLeadingInset(int inset);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QWidget* makeBrand();
    void buildOptionsMenu();
    void rebuildFocusMenu();
    void refresh(const QSet<BuildStore::Field>& changed);
    void refreshFocus();

    BuildStore& m_store;
    StoreRefresh* m_refresh;
    StatusDot* m_statusDot;
    QLabel* m_statusText;
    QWidget* m_counters;
    CountChip* m_newCounter;
    CountChip* m_fixedCounter;
    HeaderMenuButton* m_focusButton;
    QMenu* m_focusMenu;
    PickerBox* m_warningsPicker;
    PickerBox* m_severityPicker;
    SearchField* m_searchField;
    HeaderMenuButton* m_optionsButton;
    QMenu* m_optionsMenu;
    QAction* m_showNoiseAction = nullptr;
};

} // namespace corvane
