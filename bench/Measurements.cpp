#include "Measurements.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include <algorithm>

#include <sys/resource.h>

namespace corvane::bench {

std::pair<double, double> cpuSeconds()
{
    const auto seconds = [](const rusage& usage) {
        return double(usage.ru_utime.tv_sec) + double(usage.ru_utime.tv_usec) / 1e6 + double(usage.ru_stime.tv_sec)
            + double(usage.ru_stime.tv_usec) / 1e6;
    };
    rusage self{};
    rusage children{};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    return {seconds(self), seconds(children)};
}

long peakResidentKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
#ifdef Q_OS_MACOS
    return long(usage.ru_maxrss / 1024); // bytes there
#else
    return long(usage.ru_maxrss); // KiB
#endif
}

void resetPeakResident()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

long peakResidentSinceResetKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return peakResidentKiB();
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return peakResidentKiB();
}

quint64 recordedUncompressedSize(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() < 4 || !file.seek(file.size() - 4))
        return 0;
    const QByteArray trailer = file.read(4);
    quint64 size = 0;
    for (int i = 3; i >= 0; --i)
        size = size << 8 | static_cast<unsigned char>(trailer[i]);
    return size;
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double timeGzipAlone(const QString& path)
{
    QProcess gzip;
    gzip.setStandardOutputFile(QProcess::nullDevice());
    QElapsedTimer timer;
    timer.start();
    gzip.start(QStringLiteral("/usr/bin/gzip"), {QStringLiteral("-dc"), path}, QIODevice::ReadOnly);
    gzip.waitForFinished(-1);
    return double(timer.nsecsElapsed()) / 1e9;
}

std::optional<RunsAgainstGzip> timeAgainstGzip(const QString& path, int repeat, const std::function<bool()>& work)
{
    RunsAgainstGzip runs;
    for (int run = 0; run < repeat; ++run) {
        const auto beforeGzip = cpuSeconds();
        runs.gzipSeconds.push_back(timeGzipAlone(path));
        const auto beforeWork = cpuSeconds();
        runs.gzipCpu.push_back(beforeWork.second - beforeGzip.second);
        QElapsedTimer timer;
        timer.start();
        if (!work())
            return std::nullopt;
        runs.seconds.push_back(double(timer.nsecsElapsed()) / 1e9);
        const auto afterWork = cpuSeconds();
        runs.cpu.push_back(afterWork.first - beforeWork.first);
        runs.childCpu.push_back(afterWork.second - beforeWork.second);
    }
    return runs;
}

} // namespace corvane::bench
