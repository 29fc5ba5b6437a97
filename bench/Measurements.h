#pragma once

#include <QString>
#include <QtGlobal>

#include <utility>
#include <vector>

namespace corvane::bench {

// User plus system seconds of this process and of its waited-for children.
std::pair<double, double> cpuSeconds();

// The most memory this process has held resident so far, in KiB.
long peakResidentKiB();

// The middle value (the upper one of an even count), 0 for none.
double median(std::vector<double> values);

// Seconds that "gzip -dc path" takes with its output thrown away.
double timeGzipAlone(const QString& path);

// The size gzip recorded for a file's data, modulo 4 GiB.
quint64 recordedUncompressedSize(const QString& path);

} // namespace corvane::bench
