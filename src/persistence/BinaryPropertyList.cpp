#include "BinaryPropertyList.h"

#include <QBuffer>
#include <QHash>

#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <vector>

namespace corvane {

namespace {

constexpr char magic[] = "bplist00";
constexpr qsizetype magicSize = 8;
constexpr qsizetype trailerSize = 32;

enum Marker : quint8 {
    markerFalse = 0x08,
    markerTrue = 0x09,
    markerInteger = 0x10,
    markerReal = 0x20,
    markerDate = 0x33,
    markerData = 0x40,
    markerAsciiString = 0x50,
    markerUtf16String = 0x60,
    markerArray = 0xA0,
    markerDictionary = 0xD0,
};

int bytesFor(quint64 value)
{
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    if (value <= 0xFFFFFFFFu)
        return 4;
    return 8;
}

// ---- Writing ---------------------------------------------------------------

// Writes through a small buffer that is handed to the device whenever it
// fills: a history file runs to megabytes, and touching a fresh buffer of that
// size costs more than the encoding itself.
class Encoder {
public:
    bool run(const PropertyListValue& root, QIODevice& device);

private:
    // One object of the file: a value of the tree, or a dictionary key.
    struct Object {
        const void* item = nullptr; // a PropertyListValue, or a QString when isKey
        quint32 firstReference = 0; // containers: where their references start in m_references
        bool isKey = false;
    };

    quint32 add(Object object);
    quint32 flatten(const PropertyListValue& value);
    quint32 flattenString(const QString& string, const PropertyListValue* value);

    void ensure(qsizetype count);
    void flush();
    quint64 position() const { return m_flushed + quint64(m_written); }
    char* grow(qsizetype count);
    void writeBigEndian(quint64 value, int size);
    void writeMarker(quint8 type, quint64 count);
    void writeInteger(qint64 value);
    void writeString(const QString& string);
    void writeReferences(quint32 first, quint64 count);
    void writeObject(const Object& object);

    std::vector<Object> m_objects;
    std::vector<quint32> m_references;
    // Strings are looked up first by where their characters live: every
    // record's keys are the same few literals, so most look-ups end in this
    // small cache without hashing any text. The tree is alive and unchanged
    // while it is written, so one buffer and length always hold the same text.
    struct CachedBuffer {
        const void* characters = nullptr;
        qsizetype size = -1;
        quint32 index = 0;
    };
    std::array<CachedBuffer, 256> m_recentBuffers{};
    QHash<QString, quint32> m_strings;
    QHash<qint64, quint32> m_integers;
    quint32 m_booleans[2] = {std::numeric_limits<quint32>::max(), std::numeric_limits<quint32>::max()};
    int m_referenceSize = 1;

    QIODevice* m_device = nullptr;
    QByteArray m_buffer;
    qsizetype m_written = 0; // bytes in m_buffer
    quint64 m_flushed = 0;   // bytes already handed to m_device
    bool m_failed = false;
};

quint32 Encoder::add(Object object)
{
    m_objects.push_back(object);
    return quint32(m_objects.size() - 1);
}

quint32 Encoder::flattenString(const QString& string, const PropertyListValue* value)
{
    const void* characters = string.constData();
    CachedBuffer& cached = m_recentBuffers[(quintptr(characters) >> 4) % m_recentBuffers.size()];
    if (cached.characters == characters && cached.size == string.size())
        return cached.index;
    quint32 index;
    if (const auto it = m_strings.constFind(string); it != m_strings.cend()) {
        index = *it;
    } else {
        index = value ? add({value, 0, false}) : add({&string, 0, true});
        m_strings.insert(string, index);
    }
    cached = {characters, string.size(), index};
    return index;
}

quint32 Encoder::flatten(const PropertyListValue& value)
{
    switch (value.type()) {
    case PropertyListValue::Type::string:
        return flattenString(*value.string(), &value);
    case PropertyListValue::Type::boolean: {
        quint32& slot = m_booleans[*value.boolean() ? 1 : 0];
        if (slot == std::numeric_limits<quint32>::max())
            slot = add({&value, 0, false});
        return slot;
    }
    case PropertyListValue::Type::integer: {
        const auto it = m_integers.constFind(*value.integer());
        if (it != m_integers.cend())
            return *it;
        const quint32 index = add({&value, 0, false});
        m_integers.insert(*value.integer(), index);
        return index;
    }
    case PropertyListValue::Type::array: {
        const auto& elements = *value.array();
        const size_t first = m_references.size();
        const quint32 index = add({&value, quint32(first), false});
        m_references.resize(first + elements.size());
        for (size_t i = 0; i < elements.size(); ++i) {
            const quint32 reference = flatten(elements[i]);
            m_references[first + i] = reference;
        }
        return index;
    }
    case PropertyListValue::Type::dictionary: {
        const auto& entries = *value.dictionary();
        const size_t count = entries.size();
        const size_t first = m_references.size();
        const quint32 index = add({&value, quint32(first), false});
        m_references.resize(first + 2 * count);
        for (size_t i = 0; i < count; ++i) {
            const quint32 reference = flattenString(entries[i].first, nullptr);
            m_references[first + i] = reference;
        }
        for (size_t i = 0; i < count; ++i) {
            const quint32 reference = flatten(entries[i].second);
            m_references[first + count + i] = reference;
        }
        return index;
    }
    default:
        return add({&value, 0, false});
    }
}

void Encoder::flush()
{
    if (m_written > 0 && m_device->write(m_buffer.constData(), m_written) != m_written)
        m_failed = true;
    m_flushed += quint64(m_written);
    m_written = 0;
}

// Makes room for count bytes in one piece; only a string or data longer than
// the buffer makes the buffer itself grow.
void Encoder::ensure(qsizetype count)
{
    if (m_buffer.size() - m_written >= count)
        return;
    flush();
    if (m_buffer.size() < count)
        m_buffer.resize(count);
}

char* Encoder::grow(qsizetype count)
{
    ensure(count);
    char* p = m_buffer.data() + m_written;
    m_written += count;
    return p;
}

void Encoder::writeBigEndian(quint64 value, int size)
{
    char* p = grow(size);
    for (int i = size - 1; i >= 0; --i) {
        p[i] = char(value & 0xFF);
        value >>= 8;
    }
}

void Encoder::writeInteger(qint64 value)
{
    // Negative numbers only exist as 8-byte integers; smaller sizes are unsigned.
    const int size = value < 0 ? 8 : bytesFor(quint64(value));
    const quint8 sizeCode = quint8(std::countr_zero(unsigned(size)));
    *grow(1) = char(markerInteger | sizeCode);
    writeBigEndian(quint64(value), size);
}

void Encoder::writeMarker(quint8 type, quint64 count)
{
    if (count < 15) {
        *grow(1) = char(type | count);
        return;
    }
    *grow(1) = char(type | 0x0F);
    writeInteger(qint64(count));
}

void Encoder::writeString(const QString& string)
{
    // The count is the same for both forms, so the marker can be written
    // first; the text is copied as ASCII and redone as UTF-16 only when a
    // character above 127 turns up.
    const char16_t* units = reinterpret_cast<const char16_t*>(string.utf16());
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

void Encoder::writeReferences(quint32 first, quint64 count)
{
    char* p = grow(qsizetype(count) * m_referenceSize);
    for (quint64 i = 0; i < count; ++i) {
        quint32 reference = m_references[first + i];
        for (int b = m_referenceSize - 1; b >= 0; --b) {
            p[b] = char(reference & 0xFF);
            reference >>= 8;
        }
        p += m_referenceSize;
    }
}

void Encoder::writeObject(const Object& object)
{
    if (object.isKey) {
        writeString(*static_cast<const QString*>(object.item));
        return;
    }
    const PropertyListValue& value = *static_cast<const PropertyListValue*>(object.item);
    switch (value.type()) {
    case PropertyListValue::Type::boolean:
        *grow(1) = char(*value.boolean() ? markerTrue : markerFalse);
        break;
    case PropertyListValue::Type::integer:
        writeInteger(*value.integer());
        break;
    case PropertyListValue::Type::real:
        *grow(1) = char(markerReal | 3);
        writeBigEndian(std::bit_cast<quint64>(*value.real()), 8);
        break;
    case PropertyListValue::Type::date:
        *grow(1) = char(markerDate);
        writeBigEndian(std::bit_cast<quint64>(value.date()->secondsSinceReferenceDate), 8);
        break;
    case PropertyListValue::Type::string:
        writeString(*value.string());
        break;
    case PropertyListValue::Type::data: {
        const QByteArray& bytes = *value.data();
        writeMarker(markerData, quint64(bytes.size()));
        if (!bytes.isEmpty())
            std::memcpy(grow(bytes.size()), bytes.constData(), size_t(bytes.size()));
        break;
    }
    case PropertyListValue::Type::array: {
        const quint64 count = value.array()->size();
        writeMarker(markerArray, count);
        writeReferences(object.firstReference, count);
        break;
    }
    case PropertyListValue::Type::dictionary: {
        const quint64 count = value.dictionary()->size();
        writeMarker(markerDictionary, count);
        writeReferences(object.firstReference, 2 * count);
        break;
    }
    }
}

// An upper bound of the objects and references a tree needs, so that their
// lists are allocated once instead of being copied as they grow.
void countObjects(const PropertyListValue& value, size_t& objects, size_t& references, size_t& strings)
{
    ++objects;
    if (value.type() == PropertyListValue::Type::string)
        ++strings;
    if (const auto* elements = value.array()) {
        references += elements->size();
        for (const PropertyListValue& element : *elements)
            countObjects(element, objects, references, strings);
    } else if (const auto* entries = value.dictionary()) {
        objects += entries->size();
        strings += entries->size();
        references += 2 * entries->size();
        for (const auto& entry : *entries)
            countObjects(entry.second, objects, references, strings);
    }
}

bool Encoder::run(const PropertyListValue& root, QIODevice& device)
{
    m_device = &device;
    size_t objects = 0;
    size_t references = 0;
    size_t strings = 0;
    countObjects(root, objects, references, strings);
    m_objects.reserve(objects);
    m_references.reserve(references);
    // Dictionary keys repeat in every record; a quarter of the strings is a
    // fair guess of the distinct ones that saves most rehashing.
    m_strings.reserve(qsizetype(strings / 4));
    flatten(root);
    m_referenceSize = bytesFor(m_objects.size() - 1);

    m_buffer.resize(128 * 1024);
    std::memcpy(grow(magicSize), magic, magicSize);
    std::vector<quint64> offsets;
    offsets.reserve(m_objects.size());
    for (const Object& object : m_objects) {
        offsets.push_back(position());
        writeObject(object);
    }

    const quint64 tableOffset = position();
    const int offsetSize = bytesFor(offsets.back());
    for (quint64 offset : offsets)
        writeBigEndian(offset, offsetSize);

    std::memset(grow(6), 0, 6); // unused bytes and sort version
    writeBigEndian(quint64(offsetSize), 1);
    writeBigEndian(quint64(m_referenceSize), 1);
    writeBigEndian(m_objects.size(), 8);
    writeBigEndian(0, 8); // the root is always the first object
    writeBigEndian(tableOffset, 8);
    flush();
    return !m_failed;
}

// ---- Reading ---------------------------------------------------------------

class Decoder {
public:
    explicit Decoder(QByteArrayView bytes)
        : m_data(reinterpret_cast<const quint8*>(bytes.data())), m_size(quint64(bytes.size()))
    {
    }

    Result<PropertyListValue> run();

private:
    enum ObjectState : quint8 { untouched, onPath, finished, stringCached };

    bool fail(BinaryPropertyList::ErrorCode code, const QString& description);
    quint64 readUnsigned(quint64 position, int size) const;
    bool objectOffset(quint64 reference, quint64& offset);
    bool readCount(quint64& position, quint8 marker, quint64& count);
    bool readReference(quint64 position, quint64& reference);
    bool readValue(quint64 reference, int depth, PropertyListValue& out);
    bool readString(quint64 reference, QString& out);
    bool readStringAt(quint64 offset, QString& out);
    bool readArray(quint64 reference, quint64 position, quint64 count, int depth,
                   PropertyListValue& out);
    bool readDictionary(quint64 reference, quint64 position, quint64 count, int depth,
                        PropertyListValue& out);

    const quint8* m_data;
    quint64 m_size;
    int m_offsetSize = 0;
    int m_referenceSize = 0;
    quint64 m_objectCount = 0;
    quint64 m_tableOffset = 0; // also the end of the object area
    std::vector<quint8> m_state;
    std::vector<QString> m_strings;
    // Data is rare in our files but, like strings, must be read only once:
    // many references to one large object would otherwise copy it each time.
    QHash<quint64, QByteArray> m_dataObjects;
    Error m_error;
};

bool Decoder::fail(BinaryPropertyList::ErrorCode code, const QString& description)
{
    m_error = Error{BinaryPropertyList::errorDomain, int(code), description};
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
        return fail(BinaryPropertyList::badOffset,
                    QStringLiteral("Object reference %1 is beyond the %2 objects.")
                        .arg(reference)
                        .arg(m_objectCount));
    offset = readUnsigned(m_tableOffset + reference * quint64(m_offsetSize), m_offsetSize);
    if (offset < quint64(magicSize) || offset >= m_tableOffset)
        return fail(BinaryPropertyList::badOffset,
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
        return fail(BinaryPropertyList::badObject, QStringLiteral("An object's length is cut off."));
    const quint8 lengthMarker = m_data[position];
    if ((lengthMarker & 0xF0) != markerInteger || (lengthMarker & 0x0F) > 3)
        return fail(BinaryPropertyList::badObject, QStringLiteral("An object's length is not an integer."));
    const int size = 1 << (lengthMarker & 0x0F);
    ++position;
    if (quint64(size) > m_tableOffset - position)
        return fail(BinaryPropertyList::badObject, QStringLiteral("An object's length is cut off."));
    count = readUnsigned(position, size);
    position += quint64(size);
    return true;
}

bool Decoder::readReference(quint64 position, quint64& reference)
{
    reference = readUnsigned(position, m_referenceSize);
    if (reference >= m_objectCount)
        return fail(BinaryPropertyList::badOffset,
                    QStringLiteral("Object reference %1 is beyond the %2 objects.")
                        .arg(reference)
                        .arg(m_objectCount));
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
            return fail(BinaryPropertyList::badObject, QStringLiteral("A string runs past the object area."));
        const quint8* bytes = m_data + position;
        for (quint64 i = 0; i < count; ++i) {
            if (bytes[i] >= 0x80)
                return fail(BinaryPropertyList::badObject,
                            QStringLiteral("An ASCII string holds a byte above 127."));
        }
        out = QString::fromLatin1(reinterpret_cast<const char*>(bytes), qsizetype(count));
        return true;
    }
    if (count > available / 2)
        return fail(BinaryPropertyList::badObject, QStringLiteral("A string runs past the object area."));
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
        return fail(BinaryPropertyList::badDictionaryKey, QStringLiteral("A dictionary key is not a string."));
    if (!readStringAt(offset, out))
        return false;
    // Keys repeat in every record; keeping the first copy lets the others share it.
    m_strings[reference] = out;
    m_state[reference] = stringCached;
    return true;
}

bool Decoder::readArray(quint64 reference, quint64 position, quint64 count, int depth,
                        PropertyListValue& out)
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

bool Decoder::readDictionary(quint64 reference, quint64 position, quint64 count, int depth,
                             PropertyListValue& out)
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
            return fail(BinaryPropertyList::badObject, QStringLiteral("An integer runs past the object area."));
        if (size == 16) {
            // Written by some writers for values of 2^63 and above; only those
            // that fit 64 signed bits are accepted.
            const quint64 high = readUnsigned(offset + 1, 8);
            const quint64 lowHalf = readUnsigned(offset + 9, 8);
            const bool negative = (lowHalf >> 63) != 0;
            if (high != (negative ? ~quint64(0) : 0))
                return fail(BinaryPropertyList::integerOutOfRange,
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
            return fail(BinaryPropertyList::badObject, QStringLiteral("A number runs past the object area."));
        break;
    case 0x30:
        if (marker != markerDate)
            break;
        if (available < 8)
            return fail(BinaryPropertyList::badObject, QStringLiteral("A date runs past the object area."));
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
            return fail(BinaryPropertyList::badObject, QStringLiteral("Data runs past the object area."));
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
        // A container reached a second time is either inside itself or shared
        // by two parents. Writers never share containers, and allowing it
        // would let a few bytes unfold into an exponentially large tree.
        if (m_state[reference] == onPath)
            return fail(BinaryPropertyList::cyclicReference,
                        QStringLiteral("Object %1 contains itself.").arg(reference));
        if (m_state[reference] == finished)
            return fail(BinaryPropertyList::sharedContainer,
                        QStringLiteral("Object %1 is used twice.").arg(reference));
        if (depth >= BinaryPropertyList::maximumDepth)
            return fail(BinaryPropertyList::tooDeep, QStringLiteral("The property list nests too deeply."));
        quint64 position = offset;
        quint64 count = 0;
        if (!readCount(position, marker, count))
            return false;
        const quint64 perEntry = quint64(m_referenceSize) * (type == markerDictionary ? 2 : 1);
        if (count > (m_tableOffset - position) / perEntry)
            return fail(BinaryPropertyList::badObject,
                        QStringLiteral("A container of %1 entries runs past the object area.").arg(count));
        m_state[reference] = onPath;
        return type == markerArray ? readArray(reference, position, count, depth, out)
                                   : readDictionary(reference, position, count, depth, out);
    }
    default:
        break;
    }
    return fail(BinaryPropertyList::unsupportedType,
                QStringLiteral("Object %1 has the unsupported type 0x%2.")
                    .arg(reference)
                    .arg(marker, 2, 16, QLatin1Char('0')));
}

Result<PropertyListValue> Decoder::run()
{
    if (m_size < quint64(magicSize + 1 + trailerSize) || std::memcmp(m_data, magic, magicSize) != 0) {
        fail(BinaryPropertyList::notBinaryPropertyList,
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
    if (m_offsetSize < 1 || m_offsetSize > 8 || m_referenceSize < 1 || m_referenceSize > 8
        || m_objectCount == 0 || top >= m_objectCount || m_tableOffset <= quint64(magicSize)
        || m_tableOffset > trailer || m_objectCount > (trailer - m_tableOffset) / quint64(m_offsetSize)) {
        fail(BinaryPropertyList::badTrailer, QStringLiteral("The property list's trailer does not fit the data."));
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

QByteArray BinaryPropertyList::encode(const PropertyListValue& root)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    Encoder().run(root, buffer);
    return bytes;
}

bool BinaryPropertyList::write(const PropertyListValue& root, QIODevice& device)
{
    return Encoder().run(root, device);
}

Result<PropertyListValue> BinaryPropertyList::decode(QByteArrayView bytes)
{
    return Decoder(bytes).run();
}

} // namespace corvane
