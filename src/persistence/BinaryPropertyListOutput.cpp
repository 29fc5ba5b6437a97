#include "BinaryPropertyListOutput.h"

#include "BinaryPropertyListFormat.h"
#include "StartBeside.h"

#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace corvane {

using namespace bplist;

namespace {

// Copies units as bytes to out; false when one of them is not ASCII. Most of
// a history's bytes are ASCII texts, so this runs eight units at a time where
// the processor has the instructions for it.
bool copyAscii(const char16_t* units, qsizetype length, char* out)
{
    qsizetype i = 0;
    char16_t seen = 0;
#ifdef __SSE2__
    const __m128i high = _mm_set1_epi16(qint16(0xFF80));
    __m128i seenWide = _mm_setzero_si128();
    for (; i + 8 <= length; i += 8) {
        const __m128i wide = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
        seenWide = _mm_or_si128(seenWide, _mm_and_si128(wide, high));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(wide, wide));
    }
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(seenWide, _mm_setzero_si128())) != 0xFFFF)
        return false;
#endif
    for (; i < length; ++i) {
        seen |= units[i];
        out[i] = char(units[i]);
    }
    return seen < 0x80;
}

// Copies units as big-endian pairs of bytes to out.
void copyBigEndian(const char16_t* units, qsizetype length, char* out)
{
    qsizetype i = 0;
#ifdef __SSE2__
    for (; i + 8 <= length; i += 8) {
        const __m128i wide = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i),
                         _mm_or_si128(_mm_slli_epi16(wide, 8), _mm_srli_epi16(wide, 8)));
    }
#endif
    for (; i < length; ++i)
        qToBigEndian(quint16(units[i]), out + 2 * i);
}

} // namespace

BinaryPropertyListOutput::BinaryPropertyListOutput(QIODevice& device) : m_device(device)
{
    // Large enough that starting a thread for each is nothing beside it.
    m_buffer.resize(4 * 1024 * 1024);
    m_writing.resize(m_buffer.size());
}

int BinaryPropertyListOutput::bytesFor(quint64 value)
{
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    if (value <= 0xFFFFFFFFu)
        return 4;
    return 8;
}

void BinaryPropertyListOutput::wait()
{
    if (m_writeDone.valid() && !m_writeDone.get())
        m_failed = true;
}

void BinaryPropertyListOutput::flush()
{
    wait();
    if (m_used > 0) {
        m_buffer.swap(m_writing);
        m_writeDone =
            startBeside([this, size = m_used] { return m_device.write(m_writing.constData(), size) == size; });
    }
    m_flushed += quint64(m_used);
    m_used = 0;
}

// Makes room for count bytes in one piece; only a string or data longer than
// the buffer makes the buffer itself grow.
void BinaryPropertyListOutput::ensure(qsizetype count)
{
    if (m_buffer.size() - m_used >= count)
        return;
    flush();
    if (m_buffer.size() < count)
        m_buffer.resize(count);
}

char* BinaryPropertyListOutput::grow(qsizetype count)
{
    ensure(count);
    char* p = m_buffer.data() + m_used;
    m_used += count;
    return p;
}

void BinaryPropertyListOutput::writeBigEndian(quint64 value, int size)
{
    char* p = grow(size);
    for (int i = size - 1; i >= 0; --i) {
        p[i] = char(value & 0xFF);
        value >>= 8;
    }
}

void BinaryPropertyListOutput::writeMagic() { std::memcpy(grow(magic.size()), magic.data(), size_t(magic.size())); }

void BinaryPropertyListOutput::writeBoolean(bool value) { *grow(1) = char(value ? markerTrue : markerFalse); }

void BinaryPropertyListOutput::writeInteger(qint64 value)
{
    // Negative numbers only exist as 8-byte integers; smaller sizes are unsigned.
    const int size = value < 0 ? 8 : bytesFor(quint64(value));
    const quint8 sizeCode = quint8(std::countr_zero(unsigned(size)));
    *grow(1) = char(markerInteger | sizeCode);
    writeBigEndian(quint64(value), size);
}

void BinaryPropertyListOutput::writeReal(double value)
{
    *grow(1) = char(markerReal | 3);
    writeBigEndian(std::bit_cast<quint64>(value), 8);
}

void BinaryPropertyListOutput::writeDate(double secondsSinceReferenceDate)
{
    *grow(1) = char(markerDate);
    writeBigEndian(std::bit_cast<quint64>(secondsSinceReferenceDate), 8);
}

void BinaryPropertyListOutput::writeMarker(quint8 type, quint64 count)
{
    if (count < 15) {
        *grow(1) = char(type | count);
        return;
    }
    *grow(1) = char(type | 0x0F);
    writeInteger(qint64(count));
}

void BinaryPropertyListOutput::writeString(QStringView string)
{
    // The count is the same for both forms, so the marker can be written
    // first; the text is copied as ASCII and redone as UTF-16 only when a
    // character above 127 turns up.
    const char16_t* units = string.utf16();
    const qsizetype length = string.size();
    // Marker, a count of up to nine bytes, and the text in its larger form:
    // nothing may be flushed between the marker and the end of the text.
    ensure(10 + 2 * length);
    const qsizetype markerAt = m_used;
    writeMarker(markerAsciiString, quint64(length));
    const qsizetype textAt = m_used;
    if (copyAscii(units, length, grow(length)))
        return;
    m_buffer[markerAt] = char(markerUtf16String | (m_buffer[markerAt] & 0x0F));
    m_used = textAt;
    copyBigEndian(units, length, grow(2 * length));
}

void BinaryPropertyListOutput::writeData(QByteArrayView bytes)
{
    writeMarker(markerData, quint64(bytes.size()));
    if (!bytes.isEmpty())
        std::memcpy(grow(bytes.size()), bytes.data(), size_t(bytes.size()));
}

void BinaryPropertyListOutput::writeArrayMarker(quint64 count) { writeMarker(markerArray, count); }

void BinaryPropertyListOutput::writeDictionaryMarker(quint64 count) { writeMarker(markerDictionary, count); }

void BinaryPropertyListOutput::writeReferences(const quint32* references, qsizetype count)
{
    char* p = grow(count * m_referenceSize);
    // One loop per size, as the size is the same for every reference of a
    // file and a history writes tens of millions of them.
    switch (m_referenceSize) {
    case 1:
        for (qsizetype i = 0; i < count; ++i)
            p[i] = char(references[i]);
        return;
    case 2:
        for (qsizetype i = 0; i < count; ++i)
            qToBigEndian(quint16(references[i]), p + 2 * i);
        return;
    case 4:
        for (qsizetype i = 0; i < count; ++i)
            qToBigEndian(references[i], p + 4 * i);
        return;
    default:
        for (qsizetype i = 0; i < count; ++i)
            qToBigEndian(quint64(references[i]), p + 8 * i);
        return;
    }
}

void BinaryPropertyListOutput::writeConsecutiveReferences(quint32 first, qsizetype count)
{
    // In pieces, so that a list of a million references needs no buffer of its own.
    quint32 chunk[1024];
    for (qsizetype done = 0; done < count;) {
        const qsizetype n = std::min<qsizetype>(count - done, qsizetype(std::size(chunk)));
        for (qsizetype i = 0; i < n; ++i)
            chunk[i] = first + quint32(done + i);
        writeReferences(chunk, n);
        done += n;
    }
}

void BinaryPropertyListOutput::writeTrailer(int offsetSize, quint64 objectCount, quint64 tableOffset)
{
    std::memset(grow(6), 0, 6); // unused bytes and sort version
    writeBigEndian(quint64(offsetSize), 1);
    writeBigEndian(quint64(m_referenceSize), 1);
    writeBigEndian(objectCount, 8);
    writeBigEndian(0, 8);
    writeBigEndian(tableOffset, 8);
}

bool BinaryPropertyListOutput::finish()
{
    // The rest is written here, as there is nothing left to do beside it.
    wait();
    if (m_used > 0 && m_device.write(m_buffer.constData(), m_used) != m_used)
        m_failed = true;
    m_flushed += quint64(m_used);
    m_used = 0;
    return !m_failed;
}

} // namespace corvane
