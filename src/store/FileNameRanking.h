#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

namespace corvane {

// Orders the distinct file names of a list once, so that a sort over
// thousands of diagnostics compares small integers instead of asking the
// collator for every pair. Names the user's locale compares as equal when
// letter case is ignored share a rank.
class FileNameRanking {
public:
    explicit FileNameRanking(const QStringList& names);

    // The rank of a name that was handed to the constructor; -1 otherwise.
    int rank(const QString& name) const { return m_ranks.value(name, -1); }

    // Locale-aware, case-insensitive, diacritics counting: the order in which
    // file and project names are shown. Negative, zero or positive.
    static int compare(const QString& a, const QString& b);
    // The names in that order; equal ones keep their order.
    static QStringList sorted(const QStringList& names);

private:
    QHash<QString, int> m_ranks;
};

} // namespace corvane
