#include "BinaryPropertyListOutput.h"

#include "BinaryPropertyListFormat.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

namespace corvane {

using namespace bplist;

BinaryPropertyListOutput::BinaryPropertyListOutput(QIODevice& device) : m_device(device)
{
    m_buffer.resize(128 * 1024);
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

void BinaryPropertyListOutput::flush()
{
    if (m_written > 0 && m_device.write(m_buffer.constData(), m_written) != m_written)
        m_failed = true;
    m_flushed += quint64(m_written);
    m_written = 0;
}

// Makes room for count bytes in one piece; only a string or data longer than
// the buffer makes the buffer itself grow.
void BinaryPropertyListOutput::ensure(qsizetype count)
{
    if (m_buffer.size() - m_written >= count)
        return;
    flush();
    if (m_buffer.size() < count)
        m_buffer.resize(count);
}

char* BinaryPropertyListOutput::grow(qsizetype count)
{
    ensure(count);
    char* p = m_buffer.data() + m_written;
    m_written += count;
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
    const qsizetype markerAt = m_written;
    writeMarker(markerAsciiString, quint64(length));
    const qsizetype textAt = m_written;
    char* p = grow(length);
    char16_t seen = 0;
    for (qsizetype i = 0; i < length; ++i) {
        seen |= units[i];
        p[i] = char(units[i]);
    }
    if (seen < 0x80)
        return;
    m_buffer[markerAt] = char(markerUtf16String | (m_buffer[markerAt] & 0x0F));
    m_written = textAt;
    p = grow(2 * length);
    for (qsizetype i = 0; i < length; ++i) {
        p[2 * i] = char(units[i] >> 8);
        p[2 * i + 1] = char(units[i] & 0xFF);
    }
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
    for (qsizetype i = 0; i < count; ++i) {
        quint32 reference = references[i];
        for (int b = m_referenceSize - 1; b >= 0; --b) {
            p[b] = char(reference & 0xFF);
            reference >>= 8;
        }
        p += m_referenceSize;
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
    flush();
    return !m_failed;
}

} // namespace corvane
