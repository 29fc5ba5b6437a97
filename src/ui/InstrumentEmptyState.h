#pragma once

#include "Theme.h"

#include <QColor>
#include <QString>
#include <QWidget>

class QLabel;

namespace corvane {

// Stands in for missing content: the ring emblem, a capitalised title and a
// short message, centred in all the space it is given.
class InstrumentEmptyState : public QWidget {
    Q_OBJECT

public:
    InstrumentEmptyState(theme::Symbol symbol, const QString& title, const QString& message,
                         const QColor& accent, QWidget* parent = nullptr);

    QString title() const;
    QString message() const;

private:
    QLabel* m_title;
    QLabel* m_message;
    QString m_messageText;
};

} // namespace corvane
