#pragma once

// Internal to the parser: the capture groups of each match, as byte ranges
// into the UTF-8 text, before any record is built from them.

#include <cstdint>
#include <vector>

namespace corvane {

struct ByteRange {
    int64_t begin = -1;
    int64_t end = -1;

    // A group that took no part in the match has no range.
    bool valid() const { return begin >= 0; }
    bool empty() const { return end <= begin; }
    bool operator==(const ByteRange&) const = default;
};

struct LocatedMatch {
    ByteRange whole, path, line, column, severity, message;
    bool operator==(const LocatedMatch&) const = default;
};

struct SimpleMatch {
    ByteRange whole, severity, message;
    bool operator==(const SimpleMatch&) const = default;
};

struct PassMatches {
    std::vector<LocatedMatch> located;
    std::vector<SimpleMatch> simple;
};

} // namespace corvane
