#pragma once

#include "Error.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

#include <functional>

namespace corvane {

// Turning an Xcode activity log into text the diagnostic parser can search.
// All of these block the calling thread; run them on a background job.

inline const QString activityLogErrorDomain = QStringLiteral("Corvane.ActivityLog");

// Codes of the reader's own errors. A failed gzip uses its exit status
// (1 and up) instead.
namespace activityLogError {
// More text than the limit, or than memory could hold.
constexpr int tooLarge = -2;
// abandonActivityLogReads() was called.
constexpr int abandoned = -3;
// gzip could not be started for want of descriptors or processes, or the
// log could not be opened for want of descriptors: worth another try later.
constexpr int lackOfResources = -4;
} // namespace activityLogError

// The log's readable text as UTF-8: the file decompressed by /usr/bin/gzip
// when it starts with the gzip signature, taken as it is otherwise, then
// reduced to its runs of readable bytes, one line feed after each. Only a
// regular file is read, and at most StorageFile::readLimit() bytes of text
// (or textLimit) are kept: a longer log fails. Never throws.
Result<QByteArray> readActivityLog(const QString& path);
Result<QByteArray> readActivityLog(const QString& path, qint64 textLimit);

// The same text, handed to textSink piece by piece in order as it is read, so
// that it never has to be held whole; a longer text than textLimit fails.
// Nothing more comes after a failure, but pieces before it may have.
Result<void> readActivityLogInPieces(const QString& path, qint64 textLimit,
                                     const std::function<void(QByteArrayView)>& textSink);

// The text of readActivityLog() handed to blockSink in consecutive blocks of
// about blockBytes as they fill, so that whoever takes them can go through the
// text while the rest is still being read, and let each block go once done
// with it. Nothing more comes after a failure, but blocks before it may have.
Result<void> readActivityLogInBlocks(const QString& path, const std::function<void(QByteArray)>& blockSink,
                                     qsizetype blockBytes = qsizetype(8) << 20);

// Makes every read under way, and every later one, fail at once and end its
// gzip. For quitting: nothing can be read afterwards.
void abandonActivityLogReads();

// At least two bytes, the first two being 0x1F 0x8B.
bool hasGzipSignature(QByteArrayView bytes);

// "/usr/bin/gzip -dc path", with all of its standard output. Any non-zero
// exit status is a failure, even when gzip wrote data first.
Result<QByteArray> decompressActivityLog(const QString& path);

} // namespace corvane
