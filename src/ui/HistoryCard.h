#pragma once

#include "KeyboardFocus.h"

#include "BuildSession.h"

#include <QAbstractButton>
#include <QColor>

namespace corvane {

// One build in the history strip: status dot, project, time, compact
// counters and a one-word summary. Clicking it makes the build active.
class HistoryCard : public QAbstractButton {
    Q_OBJECT

public:
    explicit HistoryCard(QWidget* parent = nullptr);

    void setSession(const BuildSession& session, bool isActive);
    bool isActive() const { return m_isActive; }
    QUuid sessionID() const { return m_session.id; }
    // The summary line as shown, e.g. "CLEAN", "1 ERROR", "2 WARNINGS".
    QString summary() const;

    static QString summaryText(const BuildSession& session);
    // Red with errors, orange with warnings only, green when clean.
    static QColor statusColor(const BuildSession& session);

    QSize sizeHint() const override { return {170, 72}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    KeyboardFocus* m_keyboardFocus = new KeyboardFocus(this);
    static QString summaryText(qsizetype errors, qsizetype warnings);
    static QColor statusColor(qsizetype errors, qsizetype warnings);

    BuildSession m_session;
    bool m_isActive = false;
    // Counting walks every diagnostic of the build; a card is repainted far
    // more often than its build changes.
    qsizetype m_errorCount = 0;
    qsizetype m_warningCount = 0;
};

} // namespace corvane
