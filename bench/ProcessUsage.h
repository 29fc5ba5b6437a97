#pragma once

#include <utility>

namespace corvane::bench {

// User plus system seconds of this process and of its waited-for children.
std::pair<double, double> cpuSeconds();

// The most memory this process has held resident so far, in KiB.
long peakResidentKiB();

} // namespace corvane::bench
