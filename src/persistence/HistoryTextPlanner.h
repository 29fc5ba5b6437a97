#pragma once

#include "BuildHistoryPersistence.h"
#include "StringObjectTable.h"

#include <QString>

#include <vector>

namespace corvane {

// The texts of a history archive in the order its writer stores them, each
// with a number that equal texts share: the first of its kind gets the next
// free number, starting at 0.
//
// Finding equal texts is half of writing a history and needs nothing the
// writing does, so a writer numbers the texts a piece ahead on a thread of
// its own. The archive must stay alive and unchanged while this is in use.
class HistoryTextPlanner {
public:
    struct Piece {
        std::vector<const QString*> texts;
        std::vector<quint32> numbers;
    };

    explicit HistoryTextPlanner(const BuildHistoryArchive& archive) : m_archive(archive) {}

    // The next texts, at least count of them where so many are left; an
    // empty piece once all were given.
    Piece next(qsizetype count);

private:
    // Where the walk through the archive stands: a session's own texts come
    // first, then its diagnostics', then those of its fixed diagnostics.
    enum class Part { session, diagnostics, fixed };
    void collect(Piece& piece, qsizetype count);
    void number(Piece& piece);

    const BuildHistoryArchive& m_archive;
    qsizetype m_session = 0;
    Part m_part = Part::session;
    qsizetype m_diagnostic = 0;

    StringObjectTable m_table;
    quint32 m_distinct = 0;
};

} // namespace corvane
