#pragma once

#include "BuildStore.h"

#include <QWidget>

class QLabel;

namespace corvane {

class CountChip;
class ElidedLabel;
class StoreRefresh;

// The strip at the top of the sidebar: the active build's error and warning
// counts, its NEW and FIXED counts once there is a baseline, and its source
// and time of day.
class SummaryStrip : public QWidget {
    Q_OBJECT

public:
    explicit SummaryStrip(BuildStore& store, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    BuildStore& m_store;
    StoreRefresh* m_refresh;
    CountChip* m_errors;
    CountChip* m_warnings;
    QWidget* m_comparison;
    CountChip* m_new;
    CountChip* m_fixed;
    QWidget* m_source;
    ElidedLabel* m_sourceName;
    QLabel* m_time;
};

} // namespace corvane
