#pragma once

#include "BuildStore.h"

#include <QList>
#include <QWidget>

class QLabel;

namespace corvane {

// Stands in for the diagnostic list when the active build shows nothing:
// the green emblem, "CLEAN BUILD", the store's last message, and what the
// build fixed since the previous one.
class CleanBuildPanel : public QWidget {
    Q_OBJECT

public:
    static constexpr int listedFixedLimit = 5;

    explicit CleanBuildPanel(BuildStore& store, QWidget* parent = nullptr);

private:
    void refresh();

    BuildStore& m_store;
    QLabel* m_message;
    QWidget* m_fixedBox;
    QLabel* m_fixedCount;
    QList<QWidget*> m_fixedRows;
    QList<QLabel*> m_fixedMessages;
};

} // namespace corvane
