#pragma once

#include "BuildDiagnostic.h"
#include "Theme.h"

#include <QCache>
#include <QFont>
#include <QFontMetrics>
#include <QHash>
#include <QPixmap>
#include <QStaticText>
#include <QStyledItemDelegate>
#include <QUuid>

#include <optional>
#include <vector>

namespace corvane {

// Paints the rows of DiagnosticListModel: section headers, diagnostic rows
// (severity symbol, message of at most two lines, "NEW" badge, location) and
// fixed rows (green checkmark and "FIXED" badge).
class DiagnosticRowDelegate : public QStyledItemDelegate {
public:
    explicit DiagnosticRowDelegate(QObject* parent = nullptr);

    // Rows wrap their message to the list's width, so their height depends on
    // it; the view passes its viewport width whenever that changes.
    void setAvailableWidth(int width);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    int messageWidth(int rowWidth, const QString& badge) const;
    int badgeWidth(const QString& badge) const;
    // Width of the message on one line. Shaping is the expensive part of a
    // layout pass over ten thousand rows, and a diagnostic's message never
    // changes, so it is measured once per diagnostic.
    int messageAdvance(const QUuid& id, const QString& message) const;
    // Sum of the letters' widths for ASCII text; nothing for other text.
    std::optional<qreal> asciiAdvance(const QString& text) const;
    const QPixmap& symbol(theme::Symbol symbol, const QColor& color, qreal devicePixelRatio) const;

    // A row's message broken into its lines and its location, laid out for
    // the widths they were drawn at.
    struct RowText {
        int textWidth = 0;
        bool twoLines = false;
        int locationWidth = 0;
        QStaticText first;
        QStaticText second;
        QStaticText location;
        int firstWidth = 0;
    };
    const RowText& rowText(const BuildDiagnostic& d, int textWidth, bool twoLines, int locationWidth) const;

    void paintHeader(QPainter* painter, const QRect& rect, const QModelIndex& index) const;
    void paintDiagnostic(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const;
    void paintBadge(QPainter* painter, const QRect& rect, const QString& badge, const QColor& color) const;

    int m_width = 300;
    QFont m_headerFont;
    QFont m_messageFont;
    QFont m_locationFont;
    QFont m_badgeFont;
    QFontMetrics m_headerMetrics;
    QFontMetrics m_messageMetrics;
    QFontMetrics m_locationMetrics;
    QFontMetrics m_badgeMetrics;
    mutable QHash<QUuid, int> m_advances;
    mutable std::vector<qreal> m_asciiAdvances;
    mutable QHash<QString, int> m_badgeWidths;
    // Enough for every row on a tall screen several times over.
    mutable QCache<QUuid, RowText> m_rowTexts{2000};
    mutable QHash<QString, QPixmap> m_symbols;
};

} // namespace corvane
