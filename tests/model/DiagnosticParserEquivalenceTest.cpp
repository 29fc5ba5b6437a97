// The candidate search must give exactly the matches of the plain search.
// These tests throw many seeded random texts at both and compare matches and
// records; each failure prints the seed and the text.

#include "DiagnosticParser.h"
#include "ParserCrossCheck.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QThread>

#include <array>
#include <random>
#include <string>
#include <string_view>

using namespace corvane;

namespace {

class RandomLog {
public:
    explicit RandomLog(uint32_t seed) : m_random(seed) {}

    std::string text(int pieces)
    {
        std::string out;
        for (int i = 0; i < pieces; ++i) {
            if (chance(45))
                out += diagnosticLike();
            else
                out += token();
        }
        return out;
    }

    // A line of up to `bytes` bytes full of paths and extensions without a
    // line number, which is what makes the plain search backtrack.
    std::string longLine(size_t bytes)
    {
        std::string out;
        while (out.size() < bytes) {
            out += chance(50) ? " -I" : " ";
            out += path();
            out += '.';
            out += extension();
            if (chance(3))
                out += ":" + number();
        }
        return out;
    }

private:
    bool chance(unsigned percent) { return pick(100) < percent; }
    unsigned pick(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(m_random); }
    template <size_t N>
    std::string any(const std::array<std::string_view, N>& values) { return std::string(values[pick(N)]); }

    std::string randomCase(std::string word)
    {
        for (char& c : word) {
            if (c >= 'a' && c <= 'z' && chance(30))
                c = char(c - 'a' + 'A');
        }
        return word;
    }

    std::string path()
    {
        static constexpr std::array<std::string_view, 10> parts = {
            "/Users/dev/App", "/a", "/", "//", "/tmp/x y", "/Sources/Café", "/.build", "/r/.swift", "x/y", "/K"};
        std::string out = any(parts);
        for (unsigned n = pick(3); n > 0; --n)
            out += any(parts);
        return out + "/File" + std::to_string(pick(10));
    }

    std::string extension()
    {
        static constexpr std::array<std::string_view, 22> extensions = {
            "swift", "m", "mm", "h", "hpp", "c", "cc", "cpp", "metal", "storyboard", "xib", "intentdefinition",
            "xcassets", "sh", "swiftx", "o", "txt", "ſwift", "xcaßets", "ﬅoryboard", "intentdeﬁnition", "xcaſſets"};
        return randomCase(any(extensions));
    }

    std::string number()
    {
        static constexpr std::array<std::string_view, 8> numbers = {
            "12", "0", "7", "99999999999999999999999", "٣٤", "1٢", "", "48"};
        return any(numbers);
    }

    std::string severity()
    {
        static constexpr std::array<std::string_view, 7> words = {
            "error", "warning", "note", "error", "warning", "errors", "warn"};
        return randomCase(any(words));
    }

    std::string space()
    {
        static constexpr std::array<std::string_view, 12> spaces = {
            " ", "", "  ", "\t", "\u00A0", "\u3000", "\u2028", "\r", "\n", "\u0085", "\v", "\f"};
        std::string out;
        for (unsigned n = pick(3); n > 0; --n)
            out += any(spaces);
        return out;
    }

    std::string lineEnd()
    {
        static constexpr std::array<std::string_view, 12> ends = {
            "\n", "\r", "\r\n", "\n", "\r", "", std::string_view("\0", 1), "\x01", "\x02\x03", "\u2029", "\v",
            "\u0085"};
        return any(ends);
    }

    std::string message()
    {
        static constexpr std::array<std::string_view, 9> messages = {
            "cannot find 'x' in scope", "", "  ", "unused\t\tvalue   here ", "Planning Build", "msg",
            "error: nested", "/p/q.swift:3: note: inner", "é"};
        return any(messages);
    }

    std::string diagnosticLike()
    {
        std::string out;
        if (chance(30))
            out += token();
        if (chance(75)) {
            out += path() + "." + extension();
            for (unsigned n = pick(4); n > 0; --n)
                out += ":" + number();
            out += chance(85) ? ":" : "";
        }
        out += space() + severity() + (chance(90) ? ":" : "") + space() + message() + lineEnd();
        return out;
    }

    std::string token()
    {
        static constexpr std::array<std::string_view, 34> tokens = {
            "/", ".", ":", "1", "2", " ", "\t", "\n", "\r", "\r\n", "x", "CompileSwift normal arm64 ",
            "note: Planning build", "error:", "Warning:", ".swift", ".H:", ":12:", "ß", "ſ", "ﬁ", "ﬅ", "K",
            "٣", "\u000B", "\u000C", "\u0085", "\u00A0", "\u2028", "\u2029", std::string_view("\0", 1), "\x01",
            "\xE2\x80", "\xC2"};
        std::string out = any(tokens);
        if (chance(10))
            out += severity() + ":";
        return out;
    }

    std::mt19937 m_random;
};

// CORVANE_EQUIVALENCE_SEEDS raises the number of random texts for a longer run.
uint32_t seedCount(uint32_t usual)
{
    const QByteArray value = qgetenv("CORVANE_EQUIVALENCE_SEEDS");
    bool ok = false;
    const uint32_t count = value.toUInt(&ok);
    return ok && count > 0 ? count : usual;
}

void expectAgreement(const DiagnosticParser& parser, const std::string& text, uint32_t seed)
{
    const std::optional<std::string> difference = crossCheckParser(parser, text);
    EXPECT_FALSE(difference.has_value()) << "seed " << seed << ": " << difference.value_or("") << "\ntext: "
                                         << ::testing::PrintToString(text);
}

} // namespace

TEST(DiagnosticParserEquivalence, ShortRandomTexts)
{
    const DiagnosticParser parser;
    const uint32_t seeds = seedCount(4000);
    for (uint32_t seed = 1; seed <= seeds; ++seed) {
        RandomLog log(seed);
        expectAgreement(parser, log.text(1 + int(seed % 40)), seed);
        if (::testing::Test::HasFailure())
            return;
    }
}

TEST(DiagnosticParserEquivalence, DiagnosticsAfterLongLines)
{
    const DiagnosticParser parser;
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        RandomLog log(seed);
        std::string text = log.text(5);
        text += log.longLine(1000 + seed * 60);
        text += log.text(10);
        text += seed % 2 ? "\r" : "";
        text += log.longLine(500);
        text += log.text(10);
        expectAgreement(parser, text, seed);
        if (::testing::Test::HasFailure())
            return;
    }
}

// Random single bytes and fragments with no structure at all.
TEST(DiagnosticParserEquivalence, ByteSoup)
{
    static constexpr std::string_view alphabet[] = {
        "/", ".", ":", "1", " ", "\n", "\r", "e", "error", "note", "swift", "m", "h", "\xC2\x85", "\xE2\x80\xA8",
        "\t", "a", "W", "ARNING", std::string_view("\0", 1), "\x80", "\xF0"};
    const DiagnosticParser parser;
    std::mt19937 random(7);
    const uint32_t seeds = seedCount(2000);
    for (uint32_t seed = 1; seed <= seeds; ++seed) {
        std::string text;
        const unsigned length = 1 + random() % 80;
        for (unsigned i = 0; i < length; ++i)
            text += alphabet[random() % std::size(alphabet)];
        expectAgreement(parser, text, seed);
        if (::testing::Test::HasFailure())
            return;
    }
}

// A large log is searched in parts at once and the parts' records joined.
// The same random pieces in both halves make duplicates across the join, and
// simple lines whose located form is in the other half.
TEST(DiagnosticParserEquivalence, LargeLogsSearchedInPartsAgreeWithTheStream)
{
    if (QThread::idealThreadCount() < 2)
        GTEST_SKIP() << "one processor: the log is not split";
    // Mostly plain command lines, which the search passes quickly.
    const std::string commandLine =
        "CompileSwift normal arm64 " + std::string(2000, 'x') + " -module-name App\r";
    std::string half;
    for (uint32_t seed = 1; half.size() < 9 * 1024 * 1024; ++seed)
        half += RandomLog(seed).text(10) + "\r" + commandLine;
    const std::string text = half + half;

    const DiagnosticParser parser;
    DiagnosticParser::Stream stream(parser);
    stream.append(text);
    const QList<BuildDiagnostic> streamed = stream.finish();
    const QList<BuildDiagnostic> parsed = parser.parse(text);
    ASSERT_EQ(parsed.size(), streamed.size());
    ASSERT_GT(parsed.size(), 1000);
    for (qsizetype i = 0; i < parsed.size(); ++i) {
        ASSERT_EQ(parsed[i].rawText, streamed[i].rawText) << i;
        ASSERT_EQ(parsed[i].signature(), streamed[i].signature()) << i;
    }
}
