#pragma once

#include "BuildDiagnostic.h"
#include "Theme.h"

#include <QAbstractListModel>
#include <QColor>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace corvane {

class BuildStore;

// The diagnostic list flattened into one column of rows: the optional
// "fixed since last build" section, then one section per file, each header
// followed by its diagnostics. A flat model keeps a build with ten thousand
// diagnostics cheap to rebuild and lets the view lay out only what it paints.
class DiagnosticListModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum class RowKind { fixedHeader, fileHeader, fixedDiagnostic, diagnostic };

    enum Role {
        RowKindRole = Qt::UserRole + 1,  // int of RowKind
        DiagnosticIDRole,                // QUuid; null for headers
        LocationRole,                    // locationLabel of the diagnostic
        BadgeRole,                       // "NEW", "FIXED" or empty
        SymbolRole,                      // symbol name of the leading icon
        SymbolColorRole,                 // its colour
    };

    explicit DiagnosticListModel(QObject* parent = nullptr);

    // Recomputes the rows from the store. Returns false, without resetting
    // the model, when the rows came out the same as before.
    bool rebuild(const BuildStore& store);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    RowKind kindAt(int row) const;
    bool isDiagnosticRow(int row) const;
    // The diagnostic shown in a row; null for headers and invalid rows.
    const BuildDiagnostic* diagnosticAt(int row) const;
    // Header text, or the message for a diagnostic row.
    QString textAt(int row) const;
    QString badgeAt(int row) const;
    // None for file headers.
    std::optional<theme::Symbol> symbolAt(int row) const;
    QColor symbolColorAt(int row) const;
    // What a screen reader says after a row's message: severity, state and
    // location. Empty for headers.
    QString accessibleDescriptionAt(int row) const;
    // The row showing the diagnostic, or -1.
    int rowOf(const QUuid& id) const;

private:
    struct Row {
        RowKind kind;
        // Index into m_fixed or m_diagnostics for diagnostic rows.
        qsizetype source = -1;
        QString header;
        bool isNew = false;

        bool operator==(const Row&) const = default;
    };

    // The active build's diagnostics, all of them; the rows pick the visible ones.
    const BuildStore* m_store = nullptr;
    QUuid m_sessionID;
    QList<BuildDiagnostic> m_diagnostics;
    QList<BuildDiagnostic> m_fixed;
    QList<Row> m_rows;
};

} // namespace corvane
