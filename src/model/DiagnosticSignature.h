#pragma once

#include "DiagnosticSeverity.h"
#include "Hashing.h"

#include <QString>

#include <optional>

namespace corvane {

// What makes two diagnostics of different builds "the same one".
struct DiagnosticSignature {
    DiagnosticSeverity severity = DiagnosticSeverity::note;
    std::optional<QString> filePath;
    std::optional<qint64> line;
    std::optional<qint64> column;
    QString message;

    bool operator==(const DiagnosticSignature&) const = default;
};

inline size_t qHash(const DiagnosticSignature& s, size_t seed = 0)
{
    seed = ::qHash(int(s.severity), seed);
    seed = qHashOptional(s.filePath, seed);
    seed = qHashOptional(s.line, seed);
    seed = qHashOptional(s.column, seed);
    return ::qHash(s.message, seed);
}

} // namespace corvane
