#pragma once

#include "DiagnosticPreferenceKey.h"
#include "Error.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QSet>
#include <QString>

namespace corvane {

// What "DiagnosticPreferences.plist" holds. The version is written as 1 and
// not examined when read.
struct DiagnosticPreferencesArchive {
    qint64 version = 1;
    QSet<DiagnosticPreferenceKey> pinned;
    QSet<DiagnosticPreferenceKey> ignored;

    bool operator==(const DiagnosticPreferencesArchive&) const = default;
};

// Keeps the pinned and ignored warnings in "DiagnosticPreferences.plist".
// Whatever cannot be read counts as no preferences; the file is never moved.
class DiagnosticPreferencesPersistence {
public:
    static inline const QString fileName = QStringLiteral("DiagnosticPreferences.plist");

    struct Preferences {
        QSet<DiagnosticPreferenceKey> pinned;
        QSet<DiagnosticPreferenceKey> ignored;
        bool operator==(const Preferences&) const = default;
    };

    // Never fails: any failure gives two empty sets.
    Preferences load() const;
    Result<void> save(const QSet<DiagnosticPreferenceKey>& pinned,
                      const QSet<DiagnosticPreferenceKey>& ignored) const;

    // The file's bytes for an archive, and back.
    static QByteArray encodeArchive(const DiagnosticPreferencesArchive& archive);
    static Result<DiagnosticPreferencesArchive> decodeArchive(QByteArrayView bytes);
};

} // namespace corvane
