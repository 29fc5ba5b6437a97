#include "BinaryPropertyListWriter.h"

#include "BinaryPropertyListOutput.h"
#include "StringObjectTable.h"

#include <QBuffer>
#include <QHash>

#include <limits>
#include <vector>

namespace corvane {

namespace {

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

    void writeObject(BinaryPropertyListOutput& out, const Object& object);

    std::vector<Object> m_objects;
    std::vector<quint32> m_references;
    // The tree is alive and unchanged while it is written.
    StringObjectTable m_strings;
    QHash<qint64, quint32> m_integers;
    quint32 m_booleans[2] = {std::numeric_limits<quint32>::max(), std::numeric_limits<quint32>::max()};
};

quint32 Encoder::add(Object object)
{
    m_objects.push_back(object);
    return quint32(m_objects.size() - 1);
}

quint32 Encoder::flattenString(const QString& string, const PropertyListValue* value)
{
    const quint32 next = quint32(m_objects.size());
    const quint32 index = m_strings.findOrAdd(string, next);
    if (index == next)
        add(value ? Object{value, 0, false} : Object{&string, 0, true});
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

void Encoder::writeObject(BinaryPropertyListOutput& out, const Object& object)
{
    if (object.isKey) {
        out.writeString(*static_cast<const QString*>(object.item));
        return;
    }
    const PropertyListValue& value = *static_cast<const PropertyListValue*>(object.item);
    switch (value.type()) {
    case PropertyListValue::Type::boolean:
        out.writeBoolean(*value.boolean());
        break;
    case PropertyListValue::Type::integer:
        out.writeInteger(*value.integer());
        break;
    case PropertyListValue::Type::real:
        out.writeReal(*value.real());
        break;
    case PropertyListValue::Type::date:
        out.writeDate(value.date()->secondsSinceReferenceDate);
        break;
    case PropertyListValue::Type::string:
        out.writeString(*value.string());
        break;
    case PropertyListValue::Type::data:
        out.writeData(*value.data());
        break;
    case PropertyListValue::Type::array: {
        const qsizetype count = qsizetype(value.array()->size());
        out.writeArrayMarker(quint64(count));
        out.writeReferences(m_references.data() + object.firstReference, count);
        break;
    }
    case PropertyListValue::Type::dictionary: {
        const qsizetype count = qsizetype(value.dictionary()->size());
        out.writeDictionaryMarker(quint64(count));
        out.writeReferences(m_references.data() + object.firstReference, 2 * count);
        break;
    }
    }
}

// An upper bound of the objects and references a tree needs, so that their
// lists are allocated once instead of being copied as they grow.
void countObjects(const PropertyListValue& value, size_t& objects, size_t& references)
{
    ++objects;
    if (const auto* elements = value.array()) {
        references += elements->size();
        for (const PropertyListValue& element : *elements)
            countObjects(element, objects, references);
    } else if (const auto* entries = value.dictionary()) {
        objects += entries->size();
        references += 2 * entries->size();
        for (const auto& entry : *entries)
            countObjects(entry.second, objects, references);
    }
}

bool Encoder::run(const PropertyListValue& root, QIODevice& device)
{
    size_t objects = 0;
    size_t references = 0;
    countObjects(root, objects, references);
    m_objects.reserve(objects);
    m_references.reserve(references);
    flatten(root);

    BinaryPropertyListOutput out(device);
    out.setReferenceSize(BinaryPropertyListOutput::bytesFor(m_objects.size() - 1));
    out.writeMagic();
    std::vector<quint64> offsets;
    offsets.reserve(m_objects.size());
    for (const Object& object : m_objects) {
        offsets.push_back(out.position());
        writeObject(out, object);
    }

    const quint64 tableOffset = out.position();
    const int offsetSize = BinaryPropertyListOutput::bytesFor(offsets.back());
    for (quint64 offset : offsets)
        out.writeBigEndian(offset, offsetSize);
    out.writeTrailer(offsetSize, m_objects.size(), tableOffset);
    return out.finish();
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
