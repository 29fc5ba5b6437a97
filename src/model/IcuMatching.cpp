#include "IcuMatching.h"

#include <unicode/regex.h>

namespace corvane {

namespace {

ByteRange groupRange(icu::RegexMatcher& matcher, int group)
{
    UErrorCode status = U_ZERO_ERROR;
    const int64_t begin = matcher.start64(group, status);
    const int64_t end = matcher.end64(group, status);
    if (U_FAILURE(status) || begin < 0)
        return {};
    return {begin, end};
}

} // namespace

UTextHandle openUtf8(std::string_view utf8)
{
    UErrorCode status = U_ZERO_ERROR;
    UText* text = utext_openUTF8(nullptr, utf8.data(), int64_t(utf8.size()), &status);
    if (U_FAILURE(status))
        return nullptr;
    return UTextHandle(text);
}

LocatedMatch locatedGroups(icu::RegexMatcher& m)
{
    return {groupRange(m, 0), groupRange(m, 1), groupRange(m, 2), groupRange(m, 3), groupRange(m, 4), groupRange(m, 5)};
}

SimpleMatch simpleGroups(icu::RegexMatcher& m)
{
    return {groupRange(m, 0), groupRange(m, 1), groupRange(m, 2)};
}

} // namespace corvane
