#include "HistoryTextPlanner.h"

#include <array>
#include <optional>

namespace corvane {

HistoryTextPlanner::Piece HistoryTextPlanner::next(qsizetype count)
{
    Piece piece;
    piece.texts.reserve(size_t(count) + 3);
    collect(piece, count);
    number(piece);
    return piece;
}

void HistoryTextPlanner::collect(Piece& piece, qsizetype count)
{
    std::vector<const QString*>& texts = piece.texts;
    while (qsizetype(texts.size()) < count && m_session < m_archive.sessions.size()) {
        const BuildSession& session = m_archive.sessions[m_session];
        if (m_part == Part::session) {
            texts.push_back(&session.sourceName);
            texts.push_back(&session.projectName);
            if (session.activityLogPath)
                texts.push_back(&*session.activityLogPath);
            m_part = Part::diagnostics;
            m_diagnostic = 0;
            continue;
        }
        const QList<BuildDiagnostic>& list =
            m_part == Part::diagnostics ? session.diagnostics : session.comparison.fixedDiagnostics;
        for (; m_diagnostic < list.size() && qsizetype(texts.size()) < count; ++m_diagnostic) {
            const BuildDiagnostic& d = list[m_diagnostic];
            texts.push_back(&d.message);
            if (d.filePath)
                texts.push_back(&*d.filePath);
            texts.push_back(&d.rawText);
        }
        if (m_diagnostic < list.size())
            continue;
        m_diagnostic = 0;
        if (m_part == Part::diagnostics) {
            m_part = Part::fixed;
        } else {
            m_part = Part::session;
            ++m_session;
        }
    }
}

void HistoryTextPlanner::number(Piece& piece)
{
    // The look-ups run ahead of one another in two steps (see
    // StringObjectTable), so that their cache misses overlap.
    constexpr size_t fetchAhead = 16;
    constexpr size_t prepareAhead = 6;
    std::array<std::optional<size_t>, 8> prepared;
    static_assert(prepared.size() > prepareAhead);

    const std::vector<const QString*>& texts = piece.texts;
    const size_t count = texts.size();
    piece.numbers.resize(count);
    for (size_t i = 0; i < std::min(prepareAhead, count); ++i)
        prepared[i] = m_table.prepare(*texts[i]);
    for (size_t i = 0; i < count; ++i) {
        if (i + fetchAhead < count)
            m_table.prefetch(*texts[i + fetchAhead]);
        if (i + prepareAhead < count)
            prepared[(i + prepareAhead) % prepared.size()] = m_table.prepare(*texts[i + prepareAhead]);
        const quint32 number = m_table.findOrAdd(*texts[i], m_distinct, prepared[i % prepared.size()]);
        if (number == m_distinct)
            ++m_distinct;
        piece.numbers[i] = number;
    }
}

} // namespace corvane
