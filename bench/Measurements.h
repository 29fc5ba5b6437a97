#pragma once

#include <QIODevice>
#include <QString>
#include <QtGlobal>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace corvane::bench {

// User plus system seconds of this process and of its waited-for children.
std::pair<double, double> cpuSeconds();

// The most memory this process has held resident so far, in KiB.
long peakResidentKiB();

// Starts the peak below again from the memory resident now (Linux only;
// elsewhere the peak stays the process's own).
void resetPeakResident();
// The most memory resident since the last resetPeakResident(), in KiB.
long peakResidentSinceResetKiB();

// The middle value (the upper one of an even count), 0 for none.
double median(std::vector<double> values);

// Seconds that "gzip -dc path" takes with its output thrown away.
double timeGzipAlone(const QString& path);

// Runs of some work on a gzip file and of "gzip -dc" alone on it, taken in
// turns so that a change in machine load favours neither.
struct RunsAgainstGzip {
    std::vector<double> seconds;  // the work's wall time
    std::vector<double> cpu;      // the work's own processor time
    std::vector<double> childCpu; // the processor time of the children it waited for
    std::vector<double> gzipSeconds;
    std::vector<double> gzipCpu;
};
// Nothing when the work reports a failure by returning false.
std::optional<RunsAgainstGzip> timeAgainstGzip(const QString& path, int repeat, const std::function<bool()>& work);

// Takes every byte and keeps none: what an encoder costs without the file
// system's part.
class DiscardingDevice : public QIODevice {
public:
    DiscardingDevice() { open(QIODevice::WriteOnly); }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64 size) override { return size; }
};

// The size gzip recorded for a file's data, modulo 4 GiB.
quint64 recordedUncompressedSize(const QString& path);

} // namespace corvane::bench
