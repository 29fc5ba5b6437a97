#pragma once

#include "AbsoluteTime.h"
#include "BuildComparison.h"
#include "BuildDiagnostic.h"
#include "BuildSession.h"
#include "DiagnosticPreferenceKey.h"
#include "DiagnosticSignature.h"
#include "Error.h"
#include "PropertyListValue.h"

#include <QByteArrayView>
#include <QList>
#include <QSet>
#include <QString>
#include <QUuid>

#include <functional>
#include <initializer_list>
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

    // Reads one value into its destination, or fails naming the key.
    using Read = std::function<bool(const PropertyListValue& item, QStringView key)>;
    struct Field {
        QStringView key;
        bool required;
        Read read;
    };
    static constexpr bool required = true;
    static constexpr bool optional = false;

    // Decodes a whole file and reads its root through read; a failure is an
    // error of the property-list reader's domain.
    static Result<void> readFile(QByteArrayView bytes,
                                 const std::function<bool(PropertyListRecords&, const PropertyListValue&)>& read);
    // Reads a record's dictionary entry by entry through the field of the
    // entry's key, skipping keys it does not list, then fails naming the
    // first required field (in the order listed) that never turned up.
    bool readRecord(const PropertyListValue& value, QStringView record, std::initializer_list<Field> fields);

    Read integer(qint64& out);
    Read boolean(bool& out);
    Read text(QString& out);
    Read time(AbsoluteTime& out);
    Read uuid(QUuid& out);
    Read severity(DiagnosticSeverity& out);
    // An optional field starts out absent and is set only when its key is read.
    Read integer(std::optional<qint64>& out);
    Read text(std::optional<QString>& out);
    template <typename T>
    Read record(T& out)
    {
        return [this, &out](const PropertyListValue& item, QStringView) { return decode(item, out); };
    }
    // An array of records or UUIDs; in a set, equal elements become one.
    template <typename Container>
    Read list(Container& out)
    {
        return [this, &out](const PropertyListValue& item, QStringView key) {
            const PropertyListValue::Array* elements = array(item, key);
            if (!elements)
                return false;
            out.clear();
            out.reserve(qsizetype(elements->size()));
            for (const PropertyListValue& element : *elements) {
                typename Container::value_type value;
                if (!readElement(element, key, value))
                    return false;
                out.insert(out.cend(), std::move(value));
            }
            return true;
        };
    }

    // Why the last failed read failed.
    const QString& failure() const { return m_failure; }

private:
    bool fail(QString reason);
    const PropertyListValue::Array* array(const PropertyListValue& value, QStringView key);
    // The value when it has the type asked for, else a failure naming the key.
    template <typename T>
    bool take(const T* value, QStringView key, QLatin1StringView kind, T& out);
    bool readElement(const PropertyListValue& value, QStringView key, QUuid& out);
    template <typename T>
    bool readElement(const PropertyListValue& value, QStringView, T& out)
    {
        return decode(value, out);
    }

    QString m_failure;
};

// "8-4-4-4-12" hexadecimal digits in either case; nothing else (no braces).
std::optional<QUuid> uuidFromCanonicalText(QStringView text);
// The 36-character upper-case form.
QString canonicalUuidText(const QUuid& uuid);
inline constexpr qsizetype canonicalUuidLength = 36;
// The same characters into out, for writers that need no QString of them.
void writeCanonicalUuid(const QUuid& uuid, char16_t* out);

} // namespace corvane
