#pragma once

// Internal to the parser: the capture groups of each match, as byte ranges
// into the UTF-8 text, before any record is built from them.

#include <cstdint>
#include <string_view>
#include <vector>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

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

// Every match of a pattern in the whole text, left to right, without overlap:
// the plain search that defines the result.
std::vector<LocatedMatch> findLocatedByFullSearch(const icu::RegexPattern& pattern, std::string_view utf8);
std::vector<SimpleMatch> findSimpleByFullSearch(const icu::RegexPattern& pattern, std::string_view utf8);

} // namespace corvane
