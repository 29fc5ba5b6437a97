#include "ReadableTextExtractor.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace corvane {

namespace {

constexpr std::uint64_t repeated(unsigned char byte) { return 0x0101010101010101ULL * byte; }

// True when one of the eight bytes may end a run: a byte below 32 (which also
// catches tab, line feed and carriage return; those are sorted out one by one)
// or 127. Lets long stretches of ordinary text be skipped a word at a time.
inline bool mayHoldSeparator(std::uint64_t word)
{
    const std::uint64_t high = repeated(0x80);
    const std::uint64_t below32 = (word - repeated(0x20)) & ~word & high;
    const std::uint64_t del = word ^ repeated(0x7F);
    const std::uint64_t is127 = (del - repeated(0x01)) & ~del & high;
    return (below32 | is127) != 0;
}

// Offset of the first byte in [from, size) that ends a run, or size.
qsizetype findSeparator(const char* data, qsizetype from, qsizetype size)
{
    qsizetype i = from;
    while (i < size) {
        if (size - i >= 8) {
            std::uint64_t word;
            std::memcpy(&word, data + i, sizeof word);
            if (!mayHoldSeparator(word)) {
                i += 8;
                continue;
            }
            for (const qsizetype end = i + 8; i < end; ++i) {
                if (!ReadableTextExtractor::isTextByte(static_cast<unsigned char>(data[i])))
                    return i;
            }
            continue;
        }
        if (!ReadableTextExtractor::isTextByte(static_cast<unsigned char>(data[i])))
            return i;
        ++i;
    }
    return size;
}

constexpr qsizetype minimumRunLength = 4;

} // namespace

const ReadableTextExtractor::TextByteTable& ReadableTextExtractor::textByteTable()
{
    static const TextByteTable table = [] {
        TextByteTable t{};
        for (int byte = 0; byte < 256; ++byte)
            t.values[byte] = byte == 9 || byte == 10 || byte == 13 || (byte >= 32 && byte != 127);
        return t;
    }();
    return table;
}

ReadableTextExtractor::ReadableTextExtractor(qsizetype expectedInputBytes)
{
    // Every kept run costs one separator byte in the input and one line feed in
    // the output, except the last, so the text is never longer than input + 1.
    if (expectedInputBytes > 0)
        m_text.reserve(expectedInputBytes + 1);
    m_carry.reserve(256);
}

void ReadableTextExtractor::append(QByteArrayView chunk)
{
    const char* data = chunk.data();
    const qsizetype size = chunk.size();
    qsizetype runStart = 0;
    while (runStart <= size) {
        const qsizetype separator = findSeparator(data, runStart, size);
        if (separator == size) {
            // The run goes on in the next chunk (or ends at finish()).
            m_carry.append(data + runStart, size - runStart);
            return;
        }
        const QByteArrayView piece(data + runStart, separator - runStart);
        if (m_carry.isEmpty()) {
            endRun(piece);
        } else {
            m_carry.append(piece);
            endRun(m_carry);
            m_carry.resize(0);
        }
        runStart = separator + 1;
    }
}

QByteArray ReadableTextExtractor::finish()
{
    if (!m_carry.isEmpty()) {
        endRun(m_carry);
        m_carry.resize(0);
    }
    // A reservation made for a payload that turned out mostly binary should
    // not travel on with the text.
    if (m_text.capacity() - m_text.size() > m_text.size() / 8 + 4096)
        m_text.squeeze();
    return std::exchange(m_text, QByteArray());
}

void ReadableTextExtractor::endRun(QByteArrayView run)
{
    if (run.size() < minimumRunLength || !run.isValidUtf8())
        return;
    m_text.append(run);
    m_text.append('\n');
}

QByteArray extractReadableText(QByteArrayView bytes)
{
    ReadableTextExtractor extractor(bytes.size());
    extractor.append(bytes);
    return extractor.finish();
}

} // namespace corvane
