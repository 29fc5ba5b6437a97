#include "ReadableTextExtractor.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace corvane {

namespace {

// Offset of the first byte in [from, size) that ends a run, or size. Looks at
// thirty-two bytes a round in two vectors, which the compiler turns into the
// processor's vector instructions: most of a log is long stretches of plain
// text.
qsizetype findSeparator(const char* data, qsizetype from, qsizetype size)
{
    using Bytes = unsigned char __attribute__((vector_size(16)));
    const auto separators = [](Bytes v) { return ((v < 32) & (v != '\t') & (v != '\n') & (v != '\r')) | (v == 127); };
    qsizetype i = from;
    for (; size - i >= 32; i += 32) {
        Bytes low, high;
        std::memcpy(&low, data + i, 16);
        std::memcpy(&high, data + i + 16, 16);
        const auto hits = separators(low) | separators(high);
        std::uint64_t halves[2];
        std::memcpy(halves, &hits, sizeof halves);
        if (halves[0] | halves[1])
            break;
    }
    for (; i < size; ++i) {
        if (!ReadableTextExtractor::isTextByte(static_cast<unsigned char>(data[i])))
            return i;
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
    if (expectedInputBytes > 0) {
        m_text.reserve(expectedInputBytes + 1);
    }
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

QByteArray ReadableTextExtractor::takeText(qsizetype nextBytes)
{
    QByteArray taken = std::exchange(m_text, QByteArray());
    m_text.reserve(nextBytes);
    return taken;
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
