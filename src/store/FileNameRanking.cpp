#include "FileNameRanking.h"

#include <QCollator>
#include <QCollatorSortKey>
#include <QLocale>

#include <algorithm>
#include <numeric>
#include <vector>

namespace corvane {

namespace {

QCollator nameCollator()
{
    // Case-insensitive here means ICU's secondary strength: accents still
    // tell names apart, letter case does not.
    // Qt's C locale compares sort keys byte by byte, ignoring the case
    // setting; a process started without a language (LANG=C, as in many
    // service and test environments) gets the Unicode root order instead.
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English, QLocale::UnitedStates);
    QCollator collator{locale};
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    collator.setNumericMode(false);
    collator.setIgnorePunctuation(false);
    return collator;
}

// Positions of `names` in collation order (stable), with their sort keys.
struct CollatedNames {
    std::vector<QCollatorSortKey> keys;
    std::vector<qsizetype> order;
};

CollatedNames collate(const QStringList& names)
{
    const QCollator collator = nameCollator();
    CollatedNames result;
    result.keys.reserve(size_t(names.size()));
    for (const QString& name : names)
        result.keys.push_back(collator.sortKey(name));
    result.order.resize(size_t(names.size()));
    std::iota(result.order.begin(), result.order.end(), qsizetype(0));
    std::stable_sort(result.order.begin(), result.order.end(), [&](qsizetype a, qsizetype b) {
        return result.keys[size_t(a)].compare(result.keys[size_t(b)]) < 0;
    });
    return result;
}

} // namespace

QStringView FileNameRanking::fileName(const std::optional<QString>& filePath)
{
    static const QString noFile = QStringLiteral("Build");
    if (!filePath)
        return noFile;
    const qsizetype slash = filePath->lastIndexOf(u'/');
    return QStringView(*filePath).mid(slash + 1);
}

FileNameRanking::FileNameRanking(const QList<QStringView>& names)
{
    QList<QStringView> distinctViews;
    for (const QStringView name : names) {
        if (!m_places.contains(name)) {
            m_places.insert(name, Place{-1, int(distinctViews.size())});
            distinctViews.append(name);
        }
    }
    QStringList distinct;
    distinct.reserve(distinctViews.size());
    for (const QStringView name : distinctViews)
        distinct.append(name.toString());
    const CollatedNames collated = collate(distinct);
    int rank = -1;
    const QCollatorSortKey* previous = nullptr;
    for (const qsizetype index : collated.order) {
        const QCollatorSortKey& key = collated.keys[size_t(index)];
        if (!previous || previous->compare(key) != 0)
            ++rank;
        previous = &key;
        m_places[distinctViews[index]].rank = rank;
    }
}

int FileNameRanking::compare(const QString& a, const QString& b)
{
    return nameCollator().compare(a, b);
}

QStringList FileNameRanking::sorted(const QStringList& names)
{
    const CollatedNames collated = collate(names);
    QStringList result;
    result.reserve(names.size());
    for (const qsizetype index : collated.order)
        result.append(names[index]);
    return result;
}

} // namespace corvane
