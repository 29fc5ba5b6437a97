#include "ParserSearch.h"

#include "IcuMatching.h"
#include "ParserCandidates.h"

#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace corvane {

namespace {

// Matches a pattern anchored at a chosen place of the whole text. The region
// always runs to the end of the text, so a match may take later lines as the
// plain search would; "^" looks at the character before the place instead
// of treating the place as the start of the input.
class AnchoredMatcher {
public:
    AnchoredMatcher(const icu::RegexPattern& pattern, UText* text, int64_t length) : m_length(length)
    {
        UErrorCode status = U_ZERO_ERROR;
        m_matcher.reset(pattern.matcher(status));
        if (U_FAILURE(status)) {
            m_matcher.reset();
            return;
        }
        m_matcher->reset(text);
        m_matcher->useAnchoringBounds(false);
        m_matcher->useTransparentBounds(true);
    }

    bool valid() const { return m_matcher != nullptr; }

    bool matchesAt(int64_t start)
    {
        UErrorCode status = U_ZERO_ERROR;
        m_matcher->region(start, m_length, status);
        const bool found = U_SUCCESS(status) && m_matcher->lookingAt(status);
        return found && U_SUCCESS(status);
    }

    icu::RegexMatcher& matcher() { return *m_matcher; }

private:
    std::unique_ptr<icu::RegexMatcher> m_matcher;
    int64_t m_length;
};

bool isLineBreak(unsigned char c) { return c == '\n' || c == '\r'; }

// Finds line starts (after CR or LF) for ascending positions, scanning each
// byte at most once over the whole sequence of calls.
class LineStarts {
public:
    explicit LineStarts(std::string_view text) : m_text(text) {}

    int64_t startOf(int64_t position)
    {
        int64_t at = position;
        while (at > m_scannedTo && !isLineBreak(static_cast<unsigned char>(m_text[size_t(at - 1)])))
            --at;
        if (at == m_scannedTo && at > 0 && !isLineBreak(static_cast<unsigned char>(m_text[size_t(at - 1)])))
            at = m_lastStart;
        m_scannedTo = position;
        m_lastStart = at;
        return at;
    }

private:
    std::string_view m_text;
    int64_t m_scannedTo = 0;
    int64_t m_lastStart = 0;
};

// The first "/" in [lineStart, to), or -1, for ascending calls. Remembers
// what it learnt about the current line, so that many candidates on one long
// line do not make it search the line again from its start.
class SlashFinder {
public:
    explicit SlashFinder(std::string_view text) : m_text(text) {}

    int64_t find(int64_t lineStart, int64_t to)
    {
        int64_t from = lineStart;
        if (lineStart == m_lineStart) {
            if (m_found >= 0)
                return m_found < to ? m_found : -1;
            from = std::max(from, m_searchedTo);
        } else {
            m_lineStart = lineStart;
            m_found = -1;
        }
        if (from < to) {
            if (const void* hit = std::memchr(m_text.data() + from, '/', size_t(to - from))) {
                m_found = static_cast<const char*>(hit) - m_text.data();
                return m_found;
            }
        }
        m_searchedTo = std::max(from, to);
        return -1;
    }

private:
    std::string_view m_text;
    int64_t m_lineStart = -1;
    int64_t m_searchedTo = -1;
    int64_t m_found = -1;
};

bool isWhiteSpace(UChar32 c)
{
    if (c < 0x80)
        return c == ' ' || (c >= '\t' && c <= '\r');
    return u_hasBinaryProperty(c, UCHAR_WHITE_SPACE);
}

// The characters after which "(?m)^" holds.
bool isLineTerminator(UChar32 c) { return (c >= '\n' && c <= '\r') || c == 0x85 || c == 0x2028 || c == 0x2029; }

struct PlacedChar {
    int64_t at;
    UChar32 c;
};

// The character that ends at `end`, not reaching below `floor`. A malformed
// sequence gives U+FFFD, as when the text is read forwards: a well-formed
// character begins with a lead byte, which no earlier sequence can take.
PlacedChar charBefore(std::string_view text, int64_t floor, int64_t end)
{
    const unsigned char last = static_cast<unsigned char>(text[size_t(end - 1)]);
    if (last < 0x80)
        return {end - 1, last};
    const int64_t windowStart = std::max(floor, end - 4);
    const auto* window = reinterpret_cast<const uint8_t*>(text.data() + windowStart);
    int32_t index = int32_t(end - windowStart);
    UChar32 c;
    U8_PREV_OR_FFFD(window, 0, index, c);
    return {windowStart + index, c};
}

// Where the plain search's match for the severity word at `word` starts, or
// -1 when none can: the earliest place, not before `floor`, within the white
// space that runs back from the word, where "^" holds or the character is a
// CR or LF.
int64_t earliestSimpleStart(std::string_view text, int64_t floor, int64_t word, std::vector<PlacedChar>& run)
{
    // Most words follow ASCII: decide those without decoding characters.
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    int64_t spaceStart = word;
    while (spaceStart > floor && bytes[spaceStart - 1] < 0x80 && isWhiteSpace(bytes[spaceStart - 1]))
        --spaceStart;
    if (spaceStart == 0 || bytes[spaceStart - 1] < 0x80) {
        unsigned char previous = spaceStart > 0 ? bytes[spaceStart - 1] : 0;
        for (int64_t at = spaceStart; at < word; ++at) {
            if (at == 0 || bytes[at] == '\n' || bytes[at] == '\r' || isLineTerminator(previous))
                return at;
            previous = bytes[at];
        }
        return word == 0 || isLineTerminator(previous) ? word : -1;
    }
    run.clear();
    int64_t at = word;
    while (at > floor) {
        const PlacedChar before = charBefore(text, floor, at);
        if (!isWhiteSpace(before.c))
            break;
        run.push_back(before);
        at = before.at;
    }
    // `run` holds the white space from the word backwards; walk it forwards.
    UChar32 previous = at > 0 ? charBefore(text, 0, at).c : U_SENTINEL;
    for (auto it = run.rbegin(); it != run.rend(); ++it) {
        if (it->at == 0 || it->c == '\n' || it->c == '\r' || isLineTerminator(previous))
            return it->at;
        previous = it->c;
    }
    if (word == 0 || isLineTerminator(previous))
        return word;
    return -1;
}

} // namespace

// A match of the located pattern begins at a "/" and its path runs lazily,
// within one line, to the first "." from which the rest of the pattern (the
// tail) matches; what the tail does there does not depend on where the path
// began. So the plain search's next match starts at the first "/" at or
// after the resume point on the first line that has a tail match at least
// two bytes after that "/". The tail is tried only at the extension
// candidates, the line start looked for only where it matched, and the
// full pattern run once, anchored, at the chosen "/".
std::vector<LocatedMatch> findLocatedAtCandidates(const icu::RegexPattern& location,
                                                  const icu::RegexPattern& locationTail, std::string_view utf8)
{
    return findLocatedAtCandidates(location, locationTail, utf8, findExtensionCandidates(utf8));
}

std::vector<LocatedMatch> findLocatedAtCandidates(const icu::RegexPattern& location,
                                                  const icu::RegexPattern& locationTail, std::string_view utf8,
                                                  const std::vector<int64_t>& dots)
{
    std::vector<LocatedMatch> matches;
    if (dots.empty())
        return matches;
    UTextHandle text = openUtf8(utf8);
    if (!text)
        return matches;
    const int64_t length = int64_t(utf8.size());
    AnchoredMatcher tail(locationTail, text.get(), length);
    AnchoredMatcher full(location, text.get(), length);
    if (!tail.valid() || !full.valid())
        return matches;

    LineStarts lines(utf8);
    SlashFinder slashes(utf8);
    // The tail is usually the cheaper test, so it goes first. After a tail
    // match on a line without a "/", the "/" goes first until one is found:
    // a tail match runs to the end of its line, and many of them on one long
    // line would cost that line's length each.
    bool slashFirst = false;
    int64_t resume = 0;
    for (const int64_t dot : dots) {
        if (dot < resume + 2)
            continue;
        // What the tail does at this "." when the ASCII test could tell.
        LocatedMatch groups;
        TailOutcome outcome = TailOutcome::undecided;
        auto tailMatches = [&] {
            outcome = matchLocatedTailAscii(utf8, dot, groups);
            return outcome == TailOutcome::undecided ? tail.matchesAt(dot) : outcome == TailOutcome::match;
        };
        const bool tailTried = !slashFirst;
        if (tailTried && !tailMatches())
            continue;
        const int64_t lineStart = std::max(lines.startOf(dot), resume);
        // The path needs at least one character between its "/" and the ".".
        const int64_t slash = slashes.find(lineStart, dot - 1);
        slashFirst = slash < 0;
        if (slash < 0 || (!tailTried && !tailMatches()))
            continue;
        // The lazy path from this "/" stops at the first "." where the tail
        // matches, which is this one, so the tail's groups are the match's.
        if (outcome == TailOutcome::match) {
            groups.path.begin = slash;
            groups.whole = {slash, groups.message.end};
            matches.push_back(groups);
        } else {
            if (!full.matchesAt(slash))
                continue;
            matches.push_back(locatedGroups(full.matcher()));
        }
        resume = matches.back().whole.end;
    }
    return matches;
}

// A simple match is white space that starts where "^" holds or at a CR or
// LF, then a severity word and its colon. Every match ends before a CR or LF
// or at the end of the text, so the search resumes there; for each candidate
// word at or after that point, the match (if any) starts at the earliest
// allowed place of the white space before the word.
std::vector<SimpleMatch> findSimpleAtCandidates(const icu::RegexPattern& simple, std::string_view utf8)
{
    return findSimpleAtCandidates(simple, utf8, findSeverityWordCandidates(utf8));
}

std::vector<SimpleMatch> findSimpleAtCandidates(const icu::RegexPattern& simple, std::string_view utf8,
                                                const std::vector<int64_t>& words)
{
    std::vector<SimpleMatch> matches;
    if (words.empty())
        return matches;
    UTextHandle text = openUtf8(utf8);
    if (!text)
        return matches;
    AnchoredMatcher anchored(simple, text.get(), int64_t(utf8.size()));
    if (!anchored.valid())
        return matches;

    std::vector<PlacedChar> run;
    int64_t resume = 0;
    for (const int64_t word : words) {
        if (word < resume)
            continue;
        const int64_t start = earliestSimpleStart(utf8, resume, word, run);
        if (start < 0 || !anchored.matchesAt(start))
            continue;
        matches.push_back(simpleGroups(anchored.matcher()));
        resume = matches.back().whole.end;
    }
    return matches;
}

} // namespace corvane
