#include "ParserCandidates.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace corvane {

namespace {

// The alternatives of the located pattern's extension group.
constexpr std::array<std::string_view, 13> sourceExtensions = {
    "swift", "m", "mm", "h", "hpp", "c", "cc", "cpp", "metal", "storyboard", "xib", "intentdefinition", "xcassets"};

// A non-ASCII spelling of an extension (ſ for s, ﬁ for fi, ß for ss, ...)
// takes at most four bytes per letter of the longest extension.
constexpr std::size_t longestExtensionBytes = 4 * std::string_view("intentdefinition").size();

bool isAsciiLetter(unsigned char c) { return unsigned((c | 0x20) - 'a') < 26; }

bool isAsciiDigit(unsigned char c) { return unsigned(c - '0') < 10; }

// Compares with a lower-case ASCII word, ignoring the case of `bytes`.
bool equalsLowerAscii(const char* bytes, std::string_view lowerWord)
{
    for (std::size_t i = 0; i < lowerWord.size(); ++i) {
        if ((static_cast<unsigned char>(bytes[i]) | 0x20) != static_cast<unsigned char>(lowerWord[i]))
            return false;
    }
    return true;
}

bool isSourceExtension(const char* bytes, std::size_t length)
{
    for (std::string_view extension : sourceExtensions) {
        if (extension.size() == length && equalsLowerAscii(bytes, extension))
            return true;
    }
    return false;
}

// After ".ext:" the located form needs digits, then ":", then either more
// digits and ":" or the severity. Looking at ASCII alone this rejects the
// many "File.swift:12" mentions of stack traces and remarks; a non-ASCII
// byte may be a digit and is left to the regular expression.
bool mayHaveLocationAfter(const unsigned char* bytes, std::size_t size, std::size_t at)
{
    for (int number = 0; number < 2; ++number) {
        const std::size_t digits = at;
        while (at < size && isAsciiDigit(bytes[at]))
            ++at;
        if (at == size)
            return false;
        if (bytes[at] >= 0x80)
            return true;
        if (at == digits)
            return number == 1; // no column: the severity may follow
        if (bytes[at] != ':')
            return false;
        ++at;
    }
    return true;
}

bool isAsciiSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

int64_t skipAsciiSpace(const unsigned char* bytes, int64_t size, int64_t at)
{
    while (at < size && isAsciiSpace(bytes[at]))
        ++at;
    return at;
}

// One or more ASCII digits from `from`; `end` is left after them.
TailOutcome asciiDigits(const unsigned char* bytes, int64_t size, int64_t from, int64_t& end)
{
    end = from;
    while (end < size && isAsciiDigit(bytes[end]))
        ++end;
    if (end < size && bytes[end] >= 0x80)
        return TailOutcome::undecided;
    return end > from ? TailOutcome::match : TailOutcome::noMatch;
}

// From just after a ":": white space, a severity word, ":", white space and
// the message, which runs to the end of its line.
TailOutcome severityAndMessage(const unsigned char* bytes, int64_t size, int64_t at, LocatedMatch& match)
{
    at = skipAsciiSpace(bytes, size, at);
    if (at < size && bytes[at] >= 0x80)
        return TailOutcome::undecided;
    const int64_t wordStart = at;
    bool found = false;
    for (std::string_view word : {std::string_view("error"), std::string_view("warning"), std::string_view("note")}) {
        const int64_t colon = wordStart + int64_t(word.size());
        if (colon < size && equalsLowerAscii(reinterpret_cast<const char*>(bytes + wordStart), word)
            && bytes[colon] == ':') {
            match.severity = {wordStart, colon};
            at = colon + 1;
            found = true;
            break;
        }
    }
    if (!found) {
        for (int64_t i = wordStart; i < std::min(size, wordStart + 8); ++i) {
            if (bytes[i] >= 0x80)
                return TailOutcome::undecided;
        }
        return TailOutcome::noMatch;
    }
    const int64_t spaceStart = at;
    at = skipAsciiSpace(bytes, size, at);
    if (at < size) {
        if (bytes[at] >= 0x80)
            return TailOutcome::undecided;
        int64_t end = at;
        while (end < size && bytes[end] != '\n' && bytes[end] != '\r')
            ++end;
        match.message = {at, end};
        return TailOutcome::match;
    }
    // The white space ran to the end of the text: the message is its last
    // character that is not a line break, which the white space gives back.
    for (int64_t i = size - 1; i >= spaceStart; --i) {
        if (bytes[i] != '\n' && bytes[i] != '\r') {
            match.message = {i, i + 1};
            return TailOutcome::match;
        }
    }
    return TailOutcome::noMatch;
}

template <typename Visit>
void forEachColon(std::string_view text, Visit&& visit)
{
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const char* at = begin;
    while (at < end) {
        const void* found = std::memchr(at, ':', std::size_t(end - at));
        if (!found)
            return;
        const char* colon = static_cast<const char*>(found);
        visit(std::size_t(colon - begin));
        at = colon + 1;
    }
}

// The "." before the extension that ends at `colon`, when there may be one.
void addExtensionCandidate(std::string_view text, std::size_t colon, std::vector<int64_t>& dots)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    // The line number's first digit; \d also takes non-ASCII digits.
    if (colon + 1 >= text.size())
        return;
    const unsigned char next = bytes[colon + 1];
    if (!isAsciiDigit(next) && next < 0x80)
        return;
    std::size_t at = colon;
    bool nonAscii = false;
    while (at > 0 && colon - at < longestExtensionBytes) {
        const unsigned char c = bytes[at - 1];
        if (c >= 0x80)
            nonAscii = true;
        else if (!isAsciiLetter(c))
            break;
        --at;
    }
    if (at == 0 || at == colon || bytes[at - 1] != '.')
        return;
    if ((nonAscii || isSourceExtension(text.data() + at, colon - at))
        && mayHaveLocationAfter(bytes, text.size(), colon + 1))
        dots.push_back(int64_t(at - 1));
}

void addSeverityWordCandidate(std::string_view text, std::size_t colon, std::vector<int64_t>& words)
{
    for (std::string_view word : {std::string_view("error"), std::string_view("warning"), std::string_view("note")}) {
        if (colon >= word.size() && equalsLowerAscii(text.data() + colon - word.size(), word)) {
            words.push_back(int64_t(colon - word.size()));
            return;
        }
    }
}

} // namespace

bool hasPieceSeparators(std::string_view utf8)
{
    // Sixty-four bytes a round in four vectors, compared all at once; the
    // compiler turns this into the processor's vector instructions.
    using Bytes = unsigned char __attribute__((vector_size(16)));
    const char* at = utf8.data();
    const char* const end = at + utf8.size();
    while (end - at >= 64) {
        Bytes a, b, c, d;
        std::memcpy(&a, at, 16);
        std::memcpy(&b, at + 16, 16);
        std::memcpy(&c, at + 32, 16);
        std::memcpy(&d, at + 48, 16);
        const auto hits = (a <= 3) | (b <= 3) | (c <= 3) | (d <= 3);
        uint64_t halves[2];
        std::memcpy(halves, &hits, sizeof halves);
        if (halves[0] | halves[1])
            return true;
        at += 64;
    }
    for (; at < end; ++at) {
        if (static_cast<unsigned char>(*at) <= 3)
            return true;
    }
    return false;
}

std::string withPieceSeparatorsAsLineFeeds(std::string_view utf8)
{
    std::string copy(utf8);
    for (char& c : copy) {
        if (static_cast<unsigned char>(c) <= 3)
            c = '\n';
    }
    return copy;
}

std::vector<int64_t> findExtensionCandidates(std::string_view text)
{
    std::vector<int64_t> dots;
    forEachColon(text, [&](std::size_t colon) { addExtensionCandidate(text, colon, dots); });
    return dots;
}

std::vector<int64_t> findSeverityWordCandidates(std::string_view text)
{
    std::vector<int64_t> words;
    forEachColon(text, [&](std::size_t colon) { addSeverityWordCandidate(text, colon, words); });
    return words;
}

Candidates findCandidates(std::string_view text)
{
    // Colons and piece separators in one pass, sixteen bytes at a time:
    // walking the colons with memchr and testing for separators apart would
    // read the whole text twice.
    using Bytes = unsigned char __attribute__((vector_size(16)));
    Candidates candidates;
    auto visitColon = [&](std::size_t colon) {
        addExtensionCandidate(text, colon, candidates.extensions);
        addSeverityWordCandidate(text, colon, candidates.severityWords);
    };
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t at = 0;
    for (; text.size() - at >= 16; at += 16) {
        Bytes block;
        std::memcpy(&block, bytes + at, 16);
        const auto colons = block == ':';
        const auto separators = block <= 3;
        uint64_t halves[2], separatorHalves[2];
        std::memcpy(halves, &colons, sizeof halves);
        std::memcpy(separatorHalves, &separators, sizeof separatorHalves);
        if (separatorHalves[0] | separatorHalves[1])
            candidates.hasPieceSeparators = true;
        if (!(halves[0] | halves[1]))
            continue;
        for (std::size_t i = 0; i < 16; ++i) {
            if (bytes[at + i] == ':')
                visitColon(at + i);
        }
    }
    for (; at < text.size(); ++at) {
        if (bytes[at] <= 3)
            candidates.hasPieceSeparators = true;
        else if (bytes[at] == ':')
            visitColon(at);
    }
    return candidates;
}

TailOutcome matchLocatedTailAscii(std::string_view text, int64_t dot, LocatedMatch& match)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const auto size = int64_t(text.size());
    int64_t at = dot + 1;
    while (at < size && isAsciiLetter(bytes[at]))
        ++at;
    if (at == size)
        return TailOutcome::noMatch;
    if (bytes[at] >= 0x80)
        return TailOutcome::undecided;
    // Every extension is letters and ":" follows it, so it is the whole run.
    if (bytes[at] != ':' || !isSourceExtension(text.data() + dot + 1, std::size_t(at - dot - 1)))
        return TailOutcome::noMatch;
    match.path.end = at;
    const int64_t lineStart = at + 1;
    TailOutcome outcome = asciiDigits(bytes, size, lineStart, at);
    if (outcome != TailOutcome::match)
        return outcome;
    match.line = {lineStart, at};
    if (at == size || bytes[at] != ':')
        return TailOutcome::noMatch;
    // The optional column. When it is there and the rest fails, leaving it
    // out cannot help: the severity word would have to begin with a digit.
    int64_t columnEnd = at + 1;
    outcome = asciiDigits(bytes, size, at + 1, columnEnd);
    if (outcome == TailOutcome::undecided)
        return outcome;
    if (outcome == TailOutcome::match) {
        if (columnEnd == size || bytes[columnEnd] != ':')
            return TailOutcome::noMatch;
        match.column = {at + 1, columnEnd};
        at = columnEnd;
    }
    return severityAndMessage(bytes, size, at + 1, match);
}

} // namespace corvane
