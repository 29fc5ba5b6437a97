#include "ParserMatches.h"

#include <unicode/regex.h>
#include <unicode/utext.h>

#include <memory>

namespace corvane {

namespace {

struct UTextCloser {
    void operator()(UText* text) const { utext_close(text); }
};
using UTextHandle = std::unique_ptr<UText, UTextCloser>;

UTextHandle openUtf8(std::string_view utf8)
{
    UErrorCode status = U_ZERO_ERROR;
    UText* text = utext_openUTF8(nullptr, utf8.data(), int64_t(utf8.size()), &status);
    if (U_FAILURE(status))
        return nullptr;
    return UTextHandle(text);
}

ByteRange groupRange(icu::RegexMatcher& matcher, int group)
{
    UErrorCode status = U_ZERO_ERROR;
    const int64_t begin = matcher.start64(group, status);
    const int64_t end = matcher.end64(group, status);
    if (U_FAILURE(status) || begin < 0)
        return {};
    return {begin, end};
}

// Runs the pattern over the whole text and hands each match to the callback.
template <typename Callback>
void forEachMatch(const icu::RegexPattern& pattern, std::string_view utf8, Callback&& callback)
{
    UTextHandle text = openUtf8(utf8);
    if (!text)
        return;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(status));
    if (U_FAILURE(status))
        return;
    matcher->reset(text.get());
    while (matcher->find(status) && U_SUCCESS(status))
        callback(*matcher);
}

} // namespace

std::vector<LocatedMatch> findLocatedByFullSearch(const icu::RegexPattern& pattern, std::string_view utf8)
{
    std::vector<LocatedMatch> matches;
    forEachMatch(pattern, utf8, [&](icu::RegexMatcher& m) {
        matches.push_back({groupRange(m, 0), groupRange(m, 1), groupRange(m, 2), groupRange(m, 3),
                           groupRange(m, 4), groupRange(m, 5)});
    });
    return matches;
}

std::vector<SimpleMatch> findSimpleByFullSearch(const icu::RegexPattern& pattern, std::string_view utf8)
{
    std::vector<SimpleMatch> matches;
    forEachMatch(pattern, utf8, [&](icu::RegexMatcher& m) {
        matches.push_back({groupRange(m, 0), groupRange(m, 1), groupRange(m, 2)});
    });
    return matches;
}

} // namespace corvane
