// Feeds arbitrary bytes to the activity log text extraction. The streaming
// extractor must give byte for byte the same text whatever the chunks are,
// and that text must be what a plain byte-at-a-time reading of the rule
// gives: runs of text bytes, at least four long and valid UTF-8, each
// followed by a line feed. Any difference is printed and aborts the run.
#include "ReadableTextExtractor.h"

#include <QByteArray>
#include <QByteArrayView>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace corvane;

namespace {

// The rule written out the slow way, as the reference for the word-at-a-time
// scan.
QByteArray referenceExtraction(QByteArrayView bytes)
{
    QByteArray text;
    qsizetype runStart = 0;
    for (qsizetype i = 0; i <= bytes.size(); ++i) {
        const bool ends = i == bytes.size() || !ReadableTextExtractor::isTextByte(static_cast<unsigned char>(bytes[i]));
        if (!ends)
            continue;
        const QByteArrayView run = bytes.sliced(runStart, i - runStart);
        if (run.size() >= 4 && run.isValidUtf8())
            text.append(run).append('\n');
        runStart = i + 1;
    }
    return text;
}

// Chunk lengths chosen by the input's own first bytes, so that libFuzzer can
// steer the split points like any other part of the input. Mostly short
// chunks, so that runs and multibyte characters are cut everywhere, some
// empty ones, and some longer than the eight bytes the scan reads at once.
std::vector<qsizetype> chunkLengths(QByteArrayView bytes)
{
    std::uint64_t state = 0x9E3779B97F4A7C15ULL;
    for (qsizetype i = 0; i < qMin<qsizetype>(8, bytes.size()); ++i)
        state = (state ^ static_cast<unsigned char>(bytes[i])) * 0x100000001B3ULL;
    std::vector<qsizetype> lengths;
    for (qsizetype total = 0; total < bytes.size();) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        const unsigned pick = unsigned(state % 100);
        const qsizetype length = pick < 5 ? 0 : pick < 75 ? qsizetype(1 + state / 100 % 9) : qsizetype(1 + state / 100 % 70);
        lengths.push_back(qMin(length, bytes.size() - total));
        total += lengths.back();
    }
    return lengths;
}

QByteArray extractInChunks(ReadableTextExtractor& extractor, QByteArrayView bytes, const std::vector<qsizetype>& lengths)
{
    qsizetype offset = 0;
    for (const qsizetype length : lengths) {
        // Each chunk in a buffer of its own exact size: a read past its end
        // is caught instead of landing in the next chunk's bytes.
        const std::vector<char> exact(bytes.data() + offset, bytes.data() + offset + length);
        extractor.append(QByteArrayView(exact.data(), length));
        offset += length;
    }
    return extractor.finish();
}

void requireEqual(const char* what, const QByteArray& expected, const QByteArray& actual)
{
    if (expected == actual)
        return;
    std::fprintf(stderr, "\n%s differs from the reference extraction\nexpected (hex): %s\nactual   (hex): %s\n", what,
                 expected.toHex(' ').constData(), actual.toHex(' ').constData());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArrayView bytes(data, qsizetype(size));
    const QByteArray expected = referenceExtraction(bytes);

    requireEqual("The one-shot extraction", expected, extractReadableText(bytes));

    const std::vector<qsizetype> lengths = chunkLengths(bytes);
    // No size hint here, so the text grows from nothing as the chunks arrive.
    ReadableTextExtractor extractor;
    requireEqual("The chunked extraction", expected, extractInChunks(extractor, bytes, lengths));
    // finish() leaves the extractor empty: a second stream through the same
    // object must not see anything of the first.
    requireEqual("A second chunked extraction", expected, extractInChunks(extractor, bytes, lengths));

    const std::vector<qsizetype> singleBytes(std::size_t(size), 1);
    ReadableTextExtractor byteByByte{qsizetype(size)};
    requireEqual("The byte-by-byte extraction", expected, extractInChunks(byteByByte, bytes, singleBytes));
    return 0;
}
