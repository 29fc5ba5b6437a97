#include "ReadableTextExtractor.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(Q_OS_LINUX)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace corvane {

namespace {

constexpr std::uint64_t repeated(unsigned char byte) { return 0x0101010101010101ULL * byte; }

constexpr std::uint64_t highBits = repeated(0x80);
constexpr std::uint64_t lowBits = repeated(0x7F);

// Per byte of the word, the high bit set when the byte is zero. Exact for
// every byte (no borrow crosses from one byte into the next), so the lowest
// set bit locates the first match.
inline std::uint64_t zeroBytes(std::uint64_t word)
{
    return ~(((word & lowBits) + lowBits) | word) & highBits;
}

// Per byte, the high bit set when the byte ends a run: below 32 except tab,
// line feed and carriage return, or 127.
inline std::uint64_t separatorBytes(std::uint64_t word)
{
    const std::uint64_t atLeast32 = (((word & lowBits) + repeated(0x60)) | word) & highBits;
    const std::uint64_t below32 = ~atLeast32 & highBits;
    const std::uint64_t keptControls =
        zeroBytes(word ^ repeated('\t')) | zeroBytes(word ^ repeated('\n')) | zeroBytes(word ^ repeated('\r'));
    return (below32 & ~keptControls) | zeroBytes(word ^ repeated(0x7F));
}

// Offset of the first byte in [from, size) that ends a run, or size. Looks at
// eight bytes at a time: most of a log is long stretches of plain text.
qsizetype findSeparator(const char* data, qsizetype from, qsizetype size)
{
    qsizetype i = from;
    if constexpr (std::endian::native == std::endian::little) {
        for (; size - i >= 8; i += 8) {
            std::uint64_t word;
            std::memcpy(&word, data + i, sizeof word);
            if (const std::uint64_t separators = separatorBytes(word))
                return i + std::countr_zero(separators) / 8;
        }
    }
    for (; i < size; ++i) {
        if (!ReadableTextExtractor::isTextByte(static_cast<unsigned char>(data[i])))
            return i;
    }
    return size;
}

constexpr qsizetype minimumRunLength = 4;

// The text of a large log is written once from start to end. With ordinary
// pages that costs one page fault per 4 KiB, which on virtual machines takes
// more time than the extraction itself; asking for huge pages cuts the faults
// by a factor of 512. Only advice: where it is not available nothing changes.
void adviseLargeWriteOnce(char* data, qsizetype size)
{
#if defined(Q_OS_LINUX) && defined(MADV_HUGEPAGE)
    constexpr quintptr hugePage = 2 * 1024 * 1024;
    if (size < qsizetype(4 * hugePage))
        return;
    const auto begin = (reinterpret_cast<quintptr>(data) + hugePage - 1) & ~(hugePage - 1);
    const auto end = (reinterpret_cast<quintptr>(data) + quintptr(size)) & ~(hugePage - 1);
    if (end > begin)
        ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    Q_UNUSED(data);
    Q_UNUSED(size);
#endif
}

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
        adviseLargeWriteOnce(m_text.data(), m_text.capacity());
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
