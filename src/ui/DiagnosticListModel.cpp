#include "DiagnosticListModel.h"

#include "BuildStore.h"
#include "DisplayText.h"
#include "Theme.h"

#include <algorithm>

namespace corvane {

namespace {

const QString fixedSectionTitle = QStringLiteral("FIXED SINCE LAST BUILD");
constexpr theme::Symbol fixedSymbol = theme::Symbol::checkmarkCircleFill;

} // namespace

DiagnosticListModel::DiagnosticListModel(QObject* parent)
    : QAbstractListModel(parent)
{
}

bool DiagnosticListModel::rebuild(const BuildStore& store)
{
    m_store = &store;
    const BuildComparison comparison = store.activeComparison();
    QList<BuildDiagnostic> fixed;
    if (comparison.hasBaseline)
        fixed = store.listedFixedDiagnostics();
    // The rows point into the session's own list, shared rather than copied:
    // a large build's records are never duplicated for the view.
    const std::optional<BuildSession> session = store.activeSession();
    QList<BuildDiagnostic> diagnostics = session ? session->diagnostics : QList<BuildDiagnostic>();
    const QUuid sessionID = session ? session->id : QUuid();
    const QList<DiagnosticFileGroup> groups = store.visibleDiagnosticGroups();

    QList<Row> rows;
    rows.reserve(fixed.size() + groups.size() + diagnostics.size() + 1);
    if (!fixed.isEmpty()) {
        rows.append({RowKind::fixedHeader, -1, fixedSectionTitle, false});
        for (qsizetype i = 0; i < fixed.size(); ++i)
            rows.append({RowKind::fixedDiagnostic, i, {}, false});
    }

    for (const DiagnosticFileGroup& group : groups) {
        rows.append({RowKind::fileHeader, -1, group.fileName.toUpper(), false});
        for (const qsizetype position : group.positions)
            rows.append(
                {RowKind::diagnostic, position, {}, comparison.newDiagnosticIDs.contains(diagnostics[position].id)});
    }

    // A captured build never changes, so equal rows of the same build over
    // equal fixed diagnostics mean nothing the user sees has changed (ids are
    // unique per parsed diagnostic).
    const auto sameIDs = [](const QList<BuildDiagnostic>& a, const QList<BuildDiagnostic>& b) {
        return std::equal(a.cbegin(), a.cend(), b.cbegin(), b.cend(),
                          [](const BuildDiagnostic& x, const BuildDiagnostic& y) { return x.id == y.id; });
    };
    if (sessionID == m_sessionID && rows == m_rows && sameIDs(fixed, m_fixed))
        return false;

    beginResetModel();
    m_sessionID = sessionID;
    m_diagnostics = std::move(diagnostics);
    m_fixed = std::move(fixed);
    m_rows = std::move(rows);
    endResetModel();
    return true;
}

int DiagnosticListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

DiagnosticListModel::RowKind DiagnosticListModel::kindAt(int row) const
{
    return m_rows.at(row).kind;
}

bool DiagnosticListModel::isDiagnosticRow(int row) const
{
    if (row < 0 || row >= m_rows.size())
        return false;
    const RowKind kind = m_rows.at(row).kind;
    return kind == RowKind::diagnostic || kind == RowKind::fixedDiagnostic;
}

const BuildDiagnostic* DiagnosticListModel::diagnosticAt(int row) const
{
    if (row < 0 || row >= m_rows.size())
        return nullptr;
    const Row& r = m_rows.at(row);
    switch (r.kind) {
    case RowKind::diagnostic:
        return &m_diagnostics.at(r.source);
    case RowKind::fixedDiagnostic:
        return &m_fixed.at(r.source);
    case RowKind::fixedHeader:
    case RowKind::fileHeader:
        break;
    }
    return nullptr;
}

QString DiagnosticListModel::textAt(int row) const
{
    if (const BuildDiagnostic* d = diagnosticAt(row))
        return d->message;
    return m_rows.at(row).header;
}

QString DiagnosticListModel::badgeAt(int row) const
{
    const Row& r = m_rows.at(row);
    if (r.kind == RowKind::fixedDiagnostic)
        return QStringLiteral("FIXED");
    if (r.kind == RowKind::diagnostic && r.isNew)
        return QStringLiteral("NEW");
    return {};
}

std::optional<theme::Symbol> DiagnosticListModel::symbolAt(int row) const
{
    switch (m_rows.at(row).kind) {
    case RowKind::fixedHeader:
    case RowKind::fixedDiagnostic:
        return fixedSymbol;
    case RowKind::diagnostic:
        return theme::severityStyle(diagnosticAt(row)->severity).symbol;
    case RowKind::fileHeader:
        break;
    }
    return std::nullopt;
}

QColor DiagnosticListModel::symbolColorAt(int row) const
{
    switch (m_rows.at(row).kind) {
    case RowKind::fixedHeader:
    case RowKind::fixedDiagnostic:
        return theme::green();
    case RowKind::diagnostic:
        return theme::severityStyle(diagnosticAt(row)->severity).color;
    case RowKind::fileHeader:
        break;
    }
    return theme::secondaryText();
}

QString DiagnosticListModel::accessibleDescriptionAt(int row) const
{
    const BuildDiagnostic* d = diagnosticAt(row);
    if (!d)
        return {};
    QString severity = rawValue(d->severity);
    severity[0] = severity[0].toUpper();
    QStringList parts{severity};
    if (const QString badge = badgeAt(row); !badge.isEmpty())
        parts.append(badge);
    if (m_store && m_store->isPinned(*d))
        parts.append(QStringLiteral("PINNED"));
    if (m_store && m_store->isIgnored(*d))
        parts.append(QStringLiteral("IGNORED"));
    parts.append(d->locationLabel());
    return parts.join(QStringLiteral(", "));
}

int DiagnosticListModel::rowOf(const QUuid& id) const
{
    // A linear scan over at most one build's rows is a few microseconds, and
    // runs only when the selection moves; an index would cost more to rebuild.
    for (int row = 0; row < m_rows.size(); ++row) {
        const BuildDiagnostic* d = diagnosticAt(row);
        if (d && d->id == id)
            return row;
    }
    return -1;
}

QVariant DiagnosticListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const int row = index.row();
    const BuildDiagnostic* d = diagnosticAt(row);
    switch (role) {
    case Qt::DisplayRole:
        return textAt(row);
    case Qt::ToolTipRole:
        return d ? QVariant(displayText::bounded(d->message, displayText::lineLimit)) : QVariant();
    case Qt::AccessibleTextRole:
        return d ? displayText::bounded(d->message, displayText::lineLimit) : textAt(row);
    case Qt::AccessibleDescriptionRole:
        return accessibleDescriptionAt(row);
    case RowKindRole:
        return int(kindAt(row));
    case DiagnosticIDRole:
        return d ? d->id : QUuid();
    case LocationRole:
        return d ? d->locationLabel() : QString();
    case BadgeRole:
        return badgeAt(row);
    case SymbolRole:
        if (const std::optional<theme::Symbol> symbol = symbolAt(row))
            return theme::symbolName(*symbol);
        return QString();
    case SymbolColorRole:
        return symbolColorAt(row);
    default:
        return {};
    }
}

Qt::ItemFlags DiagnosticListModel::flags(const QModelIndex& index) const
{
    // Headers can be neither selected nor clicked into the selection.
    if (!index.isValid() || !isDiagnosticRow(index.row()))
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

} // namespace corvane
