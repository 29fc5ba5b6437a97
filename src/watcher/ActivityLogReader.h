#pragma once

#include "Error.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

namespace corvane {

// Turning an Xcode activity log into text the diagnostic parser can search.
// All of these block the calling thread; run them on a background job.

inline const QString activityLogErrorDomain = QStringLiteral("Corvane.ActivityLog");

// The log's readable text as UTF-8: the file decompressed by /usr/bin/gzip
// when it starts with the gzip signature, taken as it is otherwise, then
// reduced to its runs of readable bytes, one line feed after each.
Result<QByteArray> readActivityLog(const QString& path);

// At least two bytes, the first two being 0x1F 0x8B.
bool hasGzipSignature(QByteArrayView bytes);

// "/usr/bin/gzip -dc path", with all of its standard output. Any non-zero
// exit status is a failure, even when gzip wrote data first.
Result<QByteArray> decompressActivityLog(const QString& path);

} // namespace corvane
