#pragma once

#include "AbsoluteTime.h"
#include "BuildComparison.h"
#include "BuildDiagnostic.h"
#include "BuildSession.h"
#include "DiagnosticPreferenceKey.h"
#include "DiagnosticSignature.h"
#include "PropertyListValue.h"

#include <QString>
#include <QUuid>

#include <optional>

namespace corvane {

// Turns the records into property-list dictionaries and back. A record is a
// dictionary keyed by its field names; absent optionals are left out; UUIDs
// are upper-case canonical text and times are dates.
//
// Reading is strict about what it needs and blind to what it does not: a
// missing or mistyped required key, a bad UUID or an unknown severity fails
// the read, while unknown keys are skipped. The first failure is kept as a
// one-line reason.
class PropertyListRecords {
public:
    static PropertyListValue encode(const BuildDiagnostic& diagnostic);
    static PropertyListValue encode(const BuildComparison& comparison);
    static PropertyListValue encode(const BuildSession& session);
    static PropertyListValue encode(const DiagnosticSignature& signature);
    static PropertyListValue encode(const DiagnosticPreferenceKey& key);
    static PropertyListValue encodeUuid(const QUuid& uuid);
    static PropertyListValue encodeTime(AbsoluteTime time);

    bool decode(const PropertyListValue& value, BuildDiagnostic& out);
    bool decode(const PropertyListValue& value, BuildComparison& out);
    bool decode(const PropertyListValue& value, BuildSession& out);
    bool decode(const PropertyListValue& value, DiagnosticSignature& out);
    bool decode(const PropertyListValue& value, DiagnosticPreferenceKey& out);

    // Helpers for the archives built on top of the records; each names the
    // key it reads in the failure reason.
    const PropertyListValue::Dictionary* dictionary(const PropertyListValue& value, QStringView what);
    bool readInteger(const PropertyListValue& value, QStringView key, qint64& out);
    bool readTime(const PropertyListValue& value, QStringView key, AbsoluteTime& out);
    bool readString(const PropertyListValue& value, QStringView key, QString& out);
    bool readUuid(const PropertyListValue& value, QStringView key, QUuid& out);
    bool missing(QStringView key, QStringView record);

    // Why the last failed read failed.
    const QString& failure() const { return m_failure; }

private:
    bool fail(QString reason);
    bool readSeverity(const PropertyListValue& value, DiagnosticSeverity& out);
    bool readBoolean(const PropertyListValue& value, QStringView key, bool& out);

    QString m_failure;
};

// "8-4-4-4-12" hexadecimal digits in either case; nothing else (no braces).
std::optional<QUuid> uuidFromCanonicalText(QStringView text);
// The 36-character upper-case form.
QString canonicalUuidText(const QUuid& uuid);

} // namespace corvane
