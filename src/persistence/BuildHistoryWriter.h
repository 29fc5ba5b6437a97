#pragma once

#include "BuildHistoryPersistence.h"

#include <QIODevice>

namespace corvane {

// Writes a history archive as a binary property list straight from its
// records, with the keys and values PropertyListRecords gives them.
//
// A history holds millions of values; building a tree of them first would
// cost more time and memory than the file itself. Repeated texts are stored
// once (sessions of one project repeat most messages, paths and raw texts),
// found by their shared storage where they have it. Ids are unique by
// construction and are stored without a look-up, except that a session's
// new-diagnostic ids refer to its own diagnostics' ids.
class BuildHistoryWriter {
public:
    // False when the device refused bytes.
    static bool write(const BuildHistoryArchive& archive, QIODevice& device);
};

} // namespace corvane
