#include "BinaryPropertyListWriter.h"

#include "BinaryPropertyListFormat.h"

#include <QBuffer>
#include <QHash>

#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

namespace corvane {

namespace {

using namespace bplist;

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

// A string of the tree being written, by view: the tree outlives the writer,
// so the view stays valid, and hashing with the standard library's byte hash
// is several times faster than qHash's keyed hash on long texts.
struct StringKey {
    QStringView text;
    bool operator==(const StringKey& other) const { return text == other.text; }
};

size_t qHash(const StringKey& key, size_t seed = 0) noexcept
{
    const std::u16string_view units(key.text.utf16(), size_t(key.text.size()));
    return std::hash<std::u16string_view>{}(units) ^ seed;
}

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
    QHash<StringKey, quint32> m_strings;
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
    if (const auto it = m_strings.constFind(StringKey{string}); it != m_strings.cend()) {
        index = *it;
    } else {
        index = value ? add({value, 0, false}) : add({&string, 0, true});
        m_strings.insert(StringKey{string}, index);
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
    std::memcpy(grow(magic.size()), magic.data(), size_t(magic.size()));
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

} // namespace

QByteArray BinaryPropertyListWriter::encode(const PropertyListValue& root)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    Encoder().run(root, buffer);
    return bytes;
}

bool BinaryPropertyListWriter::write(const PropertyListValue& root, QIODevice& device)
{
    return Encoder().run(root, device);
}

} // namespace corvane
