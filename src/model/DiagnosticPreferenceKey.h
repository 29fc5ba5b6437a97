#pragma once

#include "DiagnosticSignature.h"

#include <QString>

namespace corvane {

// A warning as the user pinned or ignored it: the same warning in another
// project is a different key.
struct DiagnosticPreferenceKey {
    QString projectName;
    DiagnosticSignature signature;

    bool operator==(const DiagnosticPreferenceKey&) const = default;
};

inline size_t qHash(const DiagnosticPreferenceKey& key, size_t seed = 0)
{
    return qHash(key.signature, ::qHash(key.projectName, seed));
}

} // namespace corvane
