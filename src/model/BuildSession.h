#pragma once

#include "AbsoluteTime.h"
#include "BuildComparison.h"
#include "BuildDiagnostic.h"
#include "Hashing.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace corvane {

// The most sessions the history keeps, in memory and in its file.
inline constexpr qsizetype historyLimit = 40;

// One captured build.
struct BuildSession {
    QUuid id;
    AbsoluteTime startedAt;
    QList<BuildDiagnostic> diagnostics;
    QString sourceName;
    QString projectName;
    // Absent for logs that were imported or loaded as the sample.
    std::optional<QString> activityLogPath;
    BuildComparison comparison;

    bool operator==(const BuildSession&) const = default;

    qsizetype errorCount() const;
    qsizetype warningCount() const;
};

inline size_t qHash(const BuildSession& s, size_t seed = 0)
{
    seed = ::qHash(s.id, seed);
    seed = qHash(s.startedAt, seed);
    seed = qHashRange(s.diagnostics.cbegin(), s.diagnostics.cend(), seed);
    seed = ::qHash(s.sourceName, seed);
    seed = ::qHash(s.projectName, seed);
    seed = qHashOptional(s.activityLogPath, seed);
    return qHash(s.comparison, seed);
}

} // namespace corvane
