#pragma once

#include "BuildStore.h"

#include <QWidget>

#include <array>
#include <optional>

class QGraphicsOpacityEffect;
class QLabel;
class QVariantAnimation;
class QScrollArea;
class QToolButton;

namespace corvane {

class HistoryCard;
class StoreRefresh;

// The sidebar's build history: a header row with the expand chevron, the
// title and either a pager or the session count, and under it up to four
// cards of the visible sessions. Its position in the list and whether it is
// expanded are the only state it keeps; everything else comes from the store.
class BuildHistorySection : public QWidget {
    Q_OBJECT

public:
    explicit BuildHistorySection(BuildStore& store, QWidget* parent = nullptr);

    bool isExpanded() const { return m_expanded; }
    void setExpanded(bool expanded);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    // After a store change, with the fields that changed; after a change of
    // the section's own, with none.
    void refresh(const QSet<BuildStore::Field>& changed = {});
    // Shows the page that starts at this index of the visible sessions.
    void pageTo(qsizetype newStart);
    void animateCards(bool show);
    // Brings the new page in from the side it lies on: -1 newer, 1 older.
    void slideCards(int direction);

    BuildStore& m_store;
    StoreRefresh* m_refresh;
    bool m_expanded = true;
    std::optional<bool> m_toggleShowsExpanded;
    qsizetype m_startIndex = 0;

    QToolButton* m_toggle;
    QWidget* m_pager;
    QToolButton* m_newer;
    QLabel* m_range;
    QToolButton* m_older;
    QLabel* m_count;
    QScrollArea* m_cardsArea;
    QWidget* m_cards;
    std::array<HistoryCard*, 4> m_cardViews{};
    QVariantAnimation* m_cardsAnimation;
    QVariantAnimation* m_pageAnimation;
    QGraphicsOpacityEffect* m_cardsOpacity = nullptr;
    int m_slideDirection = 0;
};

} // namespace corvane
