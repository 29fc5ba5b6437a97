#pragma once

#include <QHash>
#include <QList>
#include <QString>

#include <optional>
#include <QStringList>
#include <QStringView>

namespace corvane {

// Orders the distinct file names of a list once, so that a sort over
// thousands of diagnostics compares small integers instead of asking the
// collator for every pair. Names the user's locale compares as equal when
// letter case is ignored share a rank.
class FileNameRanking {
public:
    // The views must outlive the ranking.
    explicit FileNameRanking(const QList<QStringView>& names);

    // The last component of a file path, or "Build" without a path: the name
    // that search and sort use, without a copy.
    static QStringView fileName(const std::optional<QString>& filePath);

    struct Place {
        int rank = -1;
        // Equal exactly when the names are the same string.
        int identity = -1;
    };
    // Where a name that was handed to the constructor stands; -1s otherwise.
    Place place(QStringView name) const { return m_places.value(name); }

    // Locale-aware, case-insensitive, diacritics counting: the order in which
    // file and project names are shown. Negative, zero or positive.
    static int compare(const QString& a, const QString& b);
    // The names in that order; equal ones keep their order.
    static QStringList sorted(const QStringList& names);

private:
    QHash<QStringView, Place> m_places;
};

} // namespace corvane
