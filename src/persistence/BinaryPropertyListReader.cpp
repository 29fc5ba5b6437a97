#include "BinaryPropertyListReader.h"

#include "BinaryPropertyListFormat.h"

#include <QHash>

#include <bit>
#include <vector>

namespace corvane {

namespace {

using namespace bplist;

class Decoder {
public:
    explicit Decoder(QByteArrayView bytes)
        : m_data(reinterpret_cast<const quint8*>(bytes.data())), m_size(quint64(bytes.size()))
    {}

    Result<PropertyListValue> run();

private:
    enum ObjectState : quint8 { untouched, onPath, finished, stringCached };

    bool fail(BinaryPropertyListReader::ErrorCode code, const QString& description);
    quint64 readUnsigned(quint64 position, int size) const;
    bool objectOffset(quint64 reference, quint64& offset);
    bool readCount(quint64& position, quint8 marker, quint64& count);
    bool readReference(quint64 position, quint64& reference);
    bool readValue(quint64 reference, int depth, PropertyListValue& out);
    bool readString(quint64 reference, QString& out);
    bool readStringAt(quint64 offset, QString& out);
    bool readArray(quint64 reference, quint64 position, quint64 count, int depth, PropertyListValue& out);
    bool readDictionary(quint64 reference, quint64 position, quint64 count, int depth, PropertyListValue& out);

    const quint8* m_data;
    quint64 m_size;
    int m_offsetSize = 0;
    int m_referenceSize = 0;
    quint64 m_objectCount = 0;
    quint64 m_tableOffset = 0; // also the end of the object area
    std::vector<quint8> m_state;
    // Values decoded again for containers used more than once: nested
    // sharing could let a few bytes unfold into an exponentially large tree.
    int m_reusing = 0; // shared containers being decoded again, one inside another
    quint64 m_reused = 0;
    std::vector<QString> m_strings;
    // Data is rare in our files but, like strings, must be read only once:
    // many references to one large object would otherwise copy it each time.
    QHash<quint64, QByteArray> m_dataObjects;
    Error m_error;
};

bool Decoder::fail(BinaryPropertyListReader::ErrorCode code, const QString& description)
{
    m_error = Error{BinaryPropertyListReader::errorDomain, int(code), description};
    return false;
}

quint64 Decoder::readUnsigned(quint64 position, int size) const
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i)
        value = (value << 8) | m_data[position + quint64(i)];
    return value;
}

bool Decoder::objectOffset(quint64 reference, quint64& offset)
{
    if (reference >= m_objectCount)
        return fail(BinaryPropertyListReader::badOffset,
                    QStringLiteral("Object reference %1 is beyond the %2 objects.").arg(reference).arg(m_objectCount));
    offset = readUnsigned(m_tableOffset + reference * quint64(m_offsetSize), m_offsetSize);
    if (offset < quint64(magic.size()) || offset >= m_tableOffset)
        return fail(BinaryPropertyListReader::badOffset,
                    QStringLiteral("Object %1 lies outside the object area.").arg(reference));
    return true;
}

// Reads the element count after a marker, which is either in the marker's low
// nibble or, when that is 0xF, an integer object of its own.
bool Decoder::readCount(quint64& position, quint8 marker, quint64& count)
{
    count = marker & 0x0F;
    ++position;
    if (count != 0x0F)
        return true;
    if (position >= m_tableOffset)
        return fail(BinaryPropertyListReader::badObject, QStringLiteral("An object's length is cut off."));
    const quint8 lengthMarker = m_data[position];
    if ((lengthMarker & 0xF0) != markerInteger || (lengthMarker & 0x0F) > 3)
        return fail(BinaryPropertyListReader::badObject, QStringLiteral("An object's length is not an integer."));
    const int size = 1 << (lengthMarker & 0x0F);
    ++position;
    if (quint64(size) > m_tableOffset - position)
        return fail(BinaryPropertyListReader::badObject, QStringLiteral("An object's length is cut off."));
    count = readUnsigned(position, size);
    position += quint64(size);
    return true;
}

bool Decoder::readReference(quint64 position, quint64& reference)
{
    reference = readUnsigned(position, m_referenceSize);
    if (reference >= m_objectCount)
        return fail(BinaryPropertyListReader::badOffset,
                    QStringLiteral("Object reference %1 is beyond the %2 objects.").arg(reference).arg(m_objectCount));
    return true;
}

bool Decoder::readStringAt(quint64 offset, QString& out)
{
    const quint8 marker = m_data[offset];
    quint64 position = offset;
    quint64 count = 0;
    if (!readCount(position, marker, count))
        return false;
    const quint64 available = m_tableOffset - position;
    if ((marker & 0xF0) == markerAsciiString) {
        if (count > available)
            return fail(BinaryPropertyListReader::badObject, QStringLiteral("A string runs past the object area."));
        const quint8* bytes = m_data + position;
        for (quint64 i = 0; i < count; ++i) {
            if (bytes[i] >= 0x80)
                return fail(BinaryPropertyListReader::badObject,
                            QStringLiteral("An ASCII string holds a byte above 127."));
        }
        out = QString::fromLatin1(reinterpret_cast<const char*>(bytes), qsizetype(count));
        return true;
    }
    if (count > available / 2)
        return fail(BinaryPropertyListReader::badObject, QStringLiteral("A string runs past the object area."));
    out.resize(qsizetype(count));
    char16_t* units = reinterpret_cast<char16_t*>(out.data());
    const quint8* bytes = m_data + position;
    for (quint64 i = 0; i < count; ++i)
        units[i] = char16_t((bytes[2 * i] << 8) | bytes[2 * i + 1]);
    return true;
}

bool Decoder::readString(quint64 reference, QString& out)
{
    if (m_state[reference] == stringCached) {
        out = m_strings[reference];
        return true;
    }
    quint64 offset = 0;
    if (!objectOffset(reference, offset))
        return false;
    const quint8 type = m_data[offset] & 0xF0;
    if (type != markerAsciiString && type != markerUtf16String)
        return fail(BinaryPropertyListReader::badDictionaryKey, QStringLiteral("A dictionary key is not a string."));
    if (!readStringAt(offset, out))
        return false;
    // Keys repeat in every record; keeping the first copy lets the others share it.
    m_strings[reference] = out;
    m_state[reference] = stringCached;
    return true;
}

bool Decoder::readArray(quint64 reference, quint64 position, quint64 count, int depth, PropertyListValue& out)
{
    PropertyListValue::Array elements;
    elements.resize(size_t(count));
    for (quint64 i = 0; i < count; ++i) {
        quint64 element = 0;
        if (!readReference(position + i * quint64(m_referenceSize), element))
            return false;
        if (!readValue(element, depth + 1, elements[size_t(i)]))
            return false;
    }
    out = PropertyListValue(std::move(elements));
    m_state[reference] = finished;
    return true;
}

bool Decoder::readDictionary(quint64 reference, quint64 position, quint64 count, int depth, PropertyListValue& out)
{
    PropertyListValue::Dictionary entries;
    entries.resize(size_t(count));
    const quint64 valuesPosition = position + count * quint64(m_referenceSize);
    for (quint64 i = 0; i < count; ++i) {
        quint64 key = 0;
        quint64 value = 0;
        if (!readReference(position + i * quint64(m_referenceSize), key)
            || !readReference(valuesPosition + i * quint64(m_referenceSize), value))
            return false;
        auto& entry = entries[size_t(i)];
        if (!readString(key, entry.first) || !readValue(value, depth + 1, entry.second))
            return false;
    }
    out = PropertyListValue(std::move(entries));
    m_state[reference] = finished;
    return true;
}

bool Decoder::readValue(quint64 reference, int depth, PropertyListValue& out)
{
    if (m_reusing > 0 && ++m_reused > BinaryPropertyListReader::maximumReusedObjects)
        return fail(BinaryPropertyListReader::unfoldsTooFar,
                    QStringLiteral("Shared containers unfold into too many objects."));
    if (m_state[reference] == stringCached) {
        out = PropertyListValue(m_strings[reference]);
        return true;
    }
    quint64 offset = 0;
    if (!objectOffset(reference, offset))
        return false;
    const quint8 marker = m_data[offset];
    const quint8 type = marker & 0xF0;
    const quint8 low = marker & 0x0F;
    const quint64 available = m_tableOffset - offset - 1;

    switch (type) {
    case 0x00:
        if (marker == markerFalse || marker == markerTrue) {
            out = PropertyListValue(marker == markerTrue);
            return true;
        }
        break;
    case markerInteger: {
        if (low > 4)
            break;
        const int size = 1 << low;
        if (quint64(size) > available)
            return fail(BinaryPropertyListReader::badObject, QStringLiteral("An integer runs past the object area."));
        if (size == 16) {
            // Written by some writers for values of 2^63 and above; only those
            // that fit 64 signed bits are accepted.
            const quint64 high = readUnsigned(offset + 1, 8);
            const quint64 lowHalf = readUnsigned(offset + 9, 8);
            const bool negative = (lowHalf >> 63) != 0;
            if (high != (negative ? ~quint64(0) : 0))
                return fail(BinaryPropertyListReader::integerOutOfRange,
                            QStringLiteral("An integer does not fit in 64 bits."));
            out = PropertyListValue(qint64(lowHalf));
            return true;
        }
        // 1, 2 and 4 bytes are unsigned; 8 bytes are two's complement.
        out = PropertyListValue(qint64(readUnsigned(offset + 1, size)));
        return true;
    }
    case markerReal:
        if (low == 2 && available >= 4) {
            out = PropertyListValue(double(std::bit_cast<float>(quint32(readUnsigned(offset + 1, 4)))));
            return true;
        }
        if (low == 3 && available >= 8) {
            out = PropertyListValue(std::bit_cast<double>(readUnsigned(offset + 1, 8)));
            return true;
        }
        if (low == 2 || low == 3)
            return fail(BinaryPropertyListReader::badObject, QStringLiteral("A number runs past the object area."));
        break;
    case 0x30:
        if (marker != markerDate)
            break;
        if (available < 8)
            return fail(BinaryPropertyListReader::badObject, QStringLiteral("A date runs past the object area."));
        out = PropertyListValue(PropertyListValue::Date{std::bit_cast<double>(readUnsigned(offset + 1, 8))});
        return true;
    case markerData: {
        if (const auto it = m_dataObjects.constFind(reference); it != m_dataObjects.cend()) {
            out = PropertyListValue(*it);
            return true;
        }
        quint64 position = offset;
        quint64 count = 0;
        if (!readCount(position, marker, count))
            return false;
        if (count > m_tableOffset - position)
            return fail(BinaryPropertyListReader::badObject, QStringLiteral("Data runs past the object area."));
        const QByteArray data(reinterpret_cast<const char*>(m_data + position), qsizetype(count));
        m_dataObjects.insert(reference, data);
        out = PropertyListValue(data);
        return true;
    }
    case markerAsciiString:
    case markerUtf16String: {
        QString string;
        if (!readStringAt(offset, string))
            return false;
        m_strings[reference] = string;
        m_state[reference] = stringCached;
        out = PropertyListValue(std::move(string));
        return true;
    }
    case markerArray:
    case markerDictionary: {
        // Only a container reached again inside itself is wrong. One reached
        // again elsewhere is shared, which the format allows: it is decoded
        // anew for each use (see m_reused).
        if (m_state[reference] == onPath)
            return fail(BinaryPropertyListReader::cyclicReference,
                        QStringLiteral("Object %1 contains itself.").arg(reference));
        if (depth >= BinaryPropertyListReader::maximumDepth)
            return fail(BinaryPropertyListReader::tooDeep, QStringLiteral("The property list nests too deeply."));
        quint64 position = offset;
        quint64 count = 0;
        if (!readCount(position, marker, count))
            return false;
        const quint64 perEntry = quint64(m_referenceSize) * (type == markerDictionary ? 2 : 1);
        if (count > (m_tableOffset - position) / perEntry)
            return fail(BinaryPropertyListReader::badObject,
                        QStringLiteral("A container of %1 entries runs past the object area.").arg(count));
        const bool again = m_state[reference] == finished;
        m_state[reference] = onPath;
        m_reusing += again;
        const bool ok = type == markerArray ? readArray(reference, position, count, depth, out)
                                            : readDictionary(reference, position, count, depth, out);
        m_reusing -= again;
        return ok;
    }
    default:
        break;
    }
    return fail(
        BinaryPropertyListReader::unsupportedType,
        QStringLiteral("Object %1 has the unsupported type 0x%2.").arg(reference).arg(marker, 2, 16, QLatin1Char('0')));
}

Result<PropertyListValue> Decoder::run()
{
    if (m_size < quint64(magic.size() + 1 + trailerSize) || QByteArrayView(m_data, magic.size()) != magic) {
        fail(BinaryPropertyListReader::notBinaryPropertyList,
             QStringLiteral("The data is not a binary property list."));
        return m_error;
    }
    const quint64 trailer = m_size - quint64(trailerSize);
    m_offsetSize = m_data[trailer + 6];
    m_referenceSize = m_data[trailer + 7];
    m_objectCount = readUnsigned(trailer + 8, 8);
    const quint64 top = readUnsigned(trailer + 16, 8);
    m_tableOffset = readUnsigned(trailer + 24, 8);

    // The division keeps the size check itself from overflowing.
    if (m_offsetSize < 1 || m_offsetSize > 8 || m_referenceSize < 1 || m_referenceSize > 8 || m_objectCount == 0
        || top >= m_objectCount || m_tableOffset <= quint64(magic.size()) || m_tableOffset > trailer
        || m_objectCount > (trailer - m_tableOffset) / quint64(m_offsetSize)) {
        fail(BinaryPropertyListReader::badTrailer,
             QStringLiteral("The property list's trailer does not fit the data."));
        return m_error;
    }

    m_state.assign(size_t(m_objectCount), untouched);
    m_strings.resize(size_t(m_objectCount));
    PropertyListValue root;
    if (!readValue(top, 0, root))
        return m_error;
    return root;
}

} // namespace

Result<PropertyListValue> BinaryPropertyListReader::decode(QByteArrayView bytes) { return Decoder(bytes).run(); }

} // namespace corvane
