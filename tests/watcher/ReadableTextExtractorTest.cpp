#include "ReadableTextExtractor.h"

#include <QRandomGenerator>
#include <QStringBuilder>

#include <gtest/gtest.h>

namespace corvane {
namespace {

template <std::size_t N>
QByteArray raw(const char (&text)[N])
{
    return QByteArray(text, N - 1);
}

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray result;
    for (int value : values)
        result.append(static_cast<char>(value));
    return result;
}

TEST(ReadableTextExtractor, KeepsRunsOfFourOrMoreTextBytesOnePerLine)
{
    EXPECT_EQ(extractReadableText(raw("\0abc\0")), QByteArray());
    EXPECT_EQ(extractReadableText(raw("\x01\x02" "first\x03\x04\x05xy\x06second")),
              QByteArray("first\nsecond\n"));
    EXPECT_EQ(extractReadableText(QByteArray(64, '\0')), QByteArray());
    // Tab, line feed and carriage return belong to the text, and count.
    EXPECT_EQ(extractReadableText(raw("\0a\tb\rc\nd\0")), QByteArray("a\tb\rc\nd\n"));
    EXPECT_EQ(extractReadableText(raw("\0\t\r\n\r\0")), QByteArray("\t\r\n\r\n"));
    // Every other control byte, and DEL, ends a run; space and tilde do not.
    for (int separator = 0; separator < 32; ++separator) {
        if (separator == 9 || separator == 10 || separator == 13)
            continue;
        QByteArray input = "left";
        input.append(char(separator)).append("right");
        EXPECT_EQ(extractReadableText(input), QByteArray("left\nright\n")) << separator;
    }
    EXPECT_EQ(extractReadableText(QByteArray("left\x7Fright")), QByteArray("left\nright\n"));
    EXPECT_EQ(extractReadableText(QByteArray(" ~ ~")), QByteArray(" ~ ~\n"));
}

TEST(ReadableTextExtractor, ARunMustBeValidUtf8AsAWhole)
{
    // Multibyte characters count byte by byte towards the minimum length.
    EXPECT_EQ(extractReadableText(raw("\0\xC3\xA9\xC3\xA9\0")), QByteArray("\xC3\xA9\xC3\xA9\n"));
    EXPECT_EQ(extractReadableText(raw("\0\xE2\x82\xAC\0")), QByteArray());
    EXPECT_EQ(extractReadableText(raw("\0\xF0\x9F\x98\x80\0")), QByteArray("\xF0\x9F\x98\x80\n"));

    // One bad byte loses the whole run, but not its neighbours.
    EXPECT_EQ(extractReadableText(raw("good\0readable text \xFF more\0fine")),
              QByteArray("good\nfine\n"));
    const QByteArray rejected[] = {
        bytes({'a', 'b', 'c', 0xC3}),               // cut short
        bytes({'a', 'b', 0xC0, 0x80}),              // overlong encoding of NUL
        bytes({'a', 0xE0, 0x80, 0xAF}),             // overlong slash
        bytes({'a', 0xED, 0xA0, 0x80}),             // UTF-16 surrogate
        bytes({0xF4, 0x90, 0x80, 0x80}),            // above U+10FFFF
        bytes({'a', 'b', 'c', 0x80}),               // stray continuation byte
        bytes({0xF8, 0x88, 0x80, 0x80, 0x80}),      // five-byte form
    };
    for (const QByteArray& run : rejected)
        EXPECT_EQ(extractReadableText(run), QByteArray()) << run.toHex().toStdString();
}

// The extraction written as plainly as possible, byte by byte, as the
// reference for the optimised scanner and for chunked input.
QByteArray referenceExtraction(const QByteArray& input)
{
    QByteArray output;
    QByteArray run;
    const auto endRun = [&] {
        if (run.size() >= 4 && QByteArrayView(run).isValidUtf8())
            output += run + QByteArray("\n");
        run.clear();
    };
    for (char c : input) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == 9 || byte == 10 || byte == 13 || (byte >= 32 && byte <= 126) || byte >= 128)
            run += c;
        else
            endRun();
    }
    endRun();
    return output;
}

QByteArray randomPayload(QRandomGenerator& random, qsizetype size)
{
    // Mostly text with a few separators and some multibyte characters, good
    // and broken, so runs of every length and validity occur.
    static const QByteArray pieces[] = {
        "a", "Z", " ", "~", "\t", "\r", "\n", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
        "\xC3", "\x80", "\xFF", QByteArray(1, '\0'), "\x01", "\x0B", "\x0C", "\x1F", "\x7F",
        "longer text without any separator ", "\xED\xA0\x80",
    };
    QByteArray payload;
    while (payload.size() < size) {
        const quint32 pick = random.bounded(100u);
        if (pick < 70)
            payload += pieces[random.bounded(0u, 10u)];
        else if (pick < 80)
            payload += pieces[random.bounded(quint32(std::size(pieces)))];
        else if (pick < 90)
            payload += pieces[random.bounded(13u, 19u)];
        else
            payload += pieces[19];
    }
    return payload;
}

TEST(ReadableTextExtractor, ChunkedInputGivesTheSameTextAsWholeInput)
{
    QRandomGenerator random(20240517);
    for (int round = 0; round < 200; ++round) {
        const QByteArray payload = randomPayload(random, random.bounded(1, 4000));
        const QByteArray expected = referenceExtraction(payload);
        ASSERT_EQ(extractReadableText(payload), expected) << "round " << round;

        ReadableTextExtractor extractor(round % 2 ? payload.size() : 0);
        qsizetype offset = 0;
        while (offset < payload.size()) {
            // Include one-byte and empty chunks, which split every run and
            // every multibyte character somewhere.
            const qsizetype length = std::min<qsizetype>(
                payload.size() - offset, random.bounded(4) == 0 ? random.bounded(0, 3) : random.bounded(1, 300));
            extractor.append(QByteArrayView(payload).sliced(offset, length));
            offset += length;
        }
        ASSERT_EQ(extractor.finish(), expected) << "round " << round;
    }
}

} // namespace
} // namespace corvane
