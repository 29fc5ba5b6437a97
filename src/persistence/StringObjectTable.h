#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace corvane {

// The objects that the strings a property-list writer has stored went into,
// so that each text is stored once.
//
// A string is looked up by where its characters live first: implicitly
// shared copies of one QString have the same storage, and finding those costs
// no hashing of text. Only a storage not seen before is looked up by content.
// The strings must stay alive and unchanged while the table is in use.
//
// Both tables are flat arrays probed in place: a history holds millions of
// strings, and a node or a second indirection per string would cost a cache
// miss more on each look-up.
class StringObjectTable {
public:
    // The object of a string equal to text if one was stored, else
    // newObject, which text is then stored as. preparedHash, when given, is
    // what prepare() returned for text.
    quint32 findOrAdd(const QString& text, quint32 newObject, std::optional<size_t> preparedHash = {});

    // A look-up in three steps, for strings met in a known order: the tables
    // are far larger than the caches, and waiting for each miss in turn is
    // most of a look-up's time. prefetch() starts fetching where text's
    // storage is looked up, some strings ahead; prepare(), nearer, looks it
    // up and, when the storage is new, hashes the content and starts
    // fetching where that is looked up, returning the hash for findOrAdd().
    void prefetch(const QString& text) const;
    std::optional<size_t> prepare(const QString& text) const;

private:
    struct StorageSlot {
        const QChar* characters = nullptr; // nullptr: free
        quint32 size = 0;
        quint32 object = 0;
    };
    struct ContentSlot {
        size_t hash = 0;
        const QChar* characters = nullptr; // nullptr: free
        quint32 size = 0;
        quint32 object = 0;
    };

    // The slot holding characters' storage, or the free one where it goes.
    size_t storageSlot(const QChar* characters, quint32 size) const;

    template <typename Slot>
    static void grow(std::vector<Slot>& slots, size_t (*hashOf)(const Slot&));

    std::vector<StorageSlot> m_storage = std::vector<StorageSlot>(1024);
    std::vector<ContentSlot> m_content = std::vector<ContentSlot>(1024);
    size_t m_storageUsed = 0;
    size_t m_contentUsed = 0;
};

} // namespace corvane
