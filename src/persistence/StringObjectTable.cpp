#include "StringObjectTable.h"

#include <limits>
#include <string_view>

namespace corvane {

namespace {

// Characters are at least 8-byte aligned and their blocks are far apart, so
// a multiplicative hash of the address spreads them well.
size_t storageHash(const QChar* characters) { return size_t(quintptr(characters) * 0x9E3779B97F4A7C15ull >> 17); }

// The standard library's byte hash is several times faster than qHash's keyed
// hash on long texts.
size_t contentHash(QStringView text)
{
    return std::hash<std::u16string_view>{}(std::u16string_view(text.utf16(), size_t(text.size())));
}

// Three quarters full: the tables are the bulk of what a save holds besides
// the history, and with a good hash a probe still ends within a cache line or
// two.
bool full(size_t used, size_t capacity) { return 4 * (used + 1) > 3 * capacity; }

} // namespace

template <typename Slot>
void StringObjectTable::grow(std::vector<Slot>& slots, size_t (*hashOf)(const Slot&))
{
    std::vector<Slot> old(2 * slots.size());
    old.swap(slots);
    const size_t mask = slots.size() - 1;
    for (const Slot& slot : old) {
        if (!slot.characters)
            continue;
        size_t i = hashOf(slot) & mask;
        while (slots[i].characters)
            i = (i + 1) & mask;
        slots[i] = slot;
    }
}

void StringObjectTable::prefetch(const QString& text) const
{
    __builtin_prefetch(&m_storage[storageHash(text.constData()) & (m_storage.size() - 1)]);
}

size_t StringObjectTable::storageSlot(const QChar* characters, quint32 size) const
{
    const size_t mask = m_storage.size() - 1;
    size_t i = storageHash(characters) & mask;
    while (m_storage[i].characters && (m_storage[i].characters != characters || m_storage[i].size != size))
        i = (i + 1) & mask;
    return i;
}

std::optional<size_t> StringObjectTable::prepare(const QString& text) const
{
    if (text.size() > qsizetype(std::numeric_limits<quint32>::max()))
        return std::nullopt;
    if (m_storage[storageSlot(text.constData(), quint32(text.size()))].characters)
        return std::nullopt;
    const size_t hash = contentHash(text);
    __builtin_prefetch(&m_content[hash & (m_content.size() - 1)]);
    return hash;
}

quint32 StringObjectTable::findOrAdd(const QString& text, quint32 newObject, std::optional<size_t> preparedHash)
{
    // Sizes are kept in 32 bits; a longer text is simply stored again.
    if (text.size() > qsizetype(std::numeric_limits<quint32>::max()))
        return newObject;
    const QChar* characters = text.constData();
    const quint32 size = quint32(text.size());

    if (full(m_storageUsed, m_storage.size()))
        grow<StorageSlot>(m_storage, [](const StorageSlot& s) { return storageHash(s.characters); });
    const size_t free = storageSlot(characters, size);
    if (m_storage[free].characters)
        return m_storage[free].object;

    if (full(m_contentUsed, m_content.size()))
        grow<ContentSlot>(m_content, [](const ContentSlot& s) { return s.hash; });
    const size_t hash = preparedHash ? *preparedHash : contentHash(text);
    const size_t contentMask = m_content.size() - 1;
    size_t i = hash & contentMask;
    quint32 object = newObject;
    for (; m_content[i].characters; i = (i + 1) & contentMask) {
        const ContentSlot& slot = m_content[i];
        if (slot.hash == hash && slot.size == size && QStringView(slot.characters, size) == QStringView(text)) {
            object = slot.object;
            break;
        }
    }
    if (object == newObject) {
        m_content[i] = {hash, characters, size, object};
        ++m_contentUsed;
    }
    // Noted either way: another copy of this storage is likely met again.
    m_storage[free] = {characters, size, object};
    ++m_storageUsed;
    return object;
}

} // namespace corvane
