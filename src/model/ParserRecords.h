#pragma once

// Internal to the parser: the records of both passes' matches, in the parse's
// order and with its de-duplication. Matches may come a piece of text at a
// time, as long as the pieces come in text order.

#include "BuildDiagnostic.h"
#include "ParserMatches.h"

#include <QList>
#include <QRandomGenerator>

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

class ParserRecords {
public:
    // expectedRecords only sizes the first tables.
    explicit ParserRecords(std::size_t expectedRecords = 0);

    // Room for `more` records beyond those kept, so that the tables of a
    // whole log are sized once.
    void reserve(std::size_t more);
    // Matches whose ranges point into text.
    void addLocated(std::string_view text, const std::vector<LocatedMatch>& matches);
    // Kept aside until finish(): a simple match is dropped when any located
    // match of the whole log has its severity and message.
    void addSimple(std::string_view text, const std::vector<SimpleMatch>& matches);
    // Adds what `later`, which was given the text that follows this one's,
    // has found, as if its matches had been added here.
    void takeFrom(ParserRecords&& later);
    // The located records in text order, then the simple ones.
    QList<BuildDiagnostic> finish();

private:
    // The records kept so far, looked up by a hash of some of their fields.
    // A flat table of hashes and positions stays in the cache where a set of
    // copied keys would not; equal hashes are confirmed on the record itself.
    class Index {
    public:
        explicit Index(std::size_t records);

        // The position of a record for which `same` holds, or -1.
        template <typename Same>
        qsizetype find(std::size_t hash, Same&& same) const;
        // As find(), remembering `position` under `hash` when nothing is found.
        template <typename Same>
        qsizetype findOrAdd(std::size_t hash, qsizetype position, Same&& same);
        void reserve(std::size_t more);
        // Starts fetching the slot where a look-up of hash begins.
        void prefetch(std::size_t hash) const;

    private:
        struct Slot {
            quint32 hash = 0;
            qint32 position = -1;
        };
        static quint32 shortHash(std::size_t hash) { return quint32(hash ^ (hash >> 32)); }
        template <typename Same>
        std::size_t probe(quint32 hash, Same&& same) const;
        void grow();

        std::vector<Slot> m_slots;
        std::size_t m_used = 0;
    };

    // One string for each text met again: a huge build repeats a few dozen
    // messages and each file's path over hundreds of thousands of records,
    // and a copy of each would be most of the records' memory. Texts are
    // looked up by the bytes they are made from, so a text met again costs
    // no conversion and no allocation.
    class SharedTexts {
    public:
        // The string equal to QString::fromUtf8(bytes).
        QString fromUtf8(std::string_view bytes);

    private:
        struct Slot {
            std::size_t hash = 0;
            QString text; // null: free
        };
        void grow();

        std::vector<Slot> m_slots = std::vector<Slot>(256);
        std::size_t m_used = 0;
    };

    // A simple match's record, waiting for the end of the located ones.
    struct PendingSimple {
        BuildDiagnostic diagnostic;
        QString word;
        std::size_t messageHash = 0;
    };

    // False when a record of the same signature is there already.
    bool append(BuildDiagnostic diagnostic, std::size_t messageHash);
    bool append(BuildDiagnostic diagnostic, std::size_t messageHash, std::size_t signatureHash);
    std::size_t signatureHash(const BuildDiagnostic& diagnostic, std::size_t messageHash);
    QUuid nextId();
    QString message(std::string_view captured, bool clean);

    QList<BuildDiagnostic> m_result;
    // The hash of each kept record's severity and message.
    std::vector<std::size_t> m_messageHashes;
    std::vector<PendingSimple> m_simple;
    Index m_signatures;
    SharedTexts m_paths;
    SharedTexts m_messages;
    // The raw text being put together, kept for its capacity.
    std::string m_rawText;
    AbsoluteTime m_now;
    QRandomGenerator m_random;
    // The severity and message hash once for both indexes, and a path's hash
    // is kept for the records of the same file that follow it. Holding the
    // hashed path keeps its characters from being freed and reused by
    // another path while it is compared by address.
    QString m_hashedPath;
    std::size_t m_pathHash = 0;
};

} // namespace corvane
