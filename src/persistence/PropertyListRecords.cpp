#include "PropertyListRecords.h"

#include "BinaryPropertyListReader.h"

#include <algorithm>
#include <array>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

using Dictionary = PropertyListValue::Dictionary;

int hexValue(char16_t c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    return -1;
}

constexpr bool isHyphenPosition(qsizetype i) { return i == 8 || i == 13 || i == 18 || i == 23; }

void putOptionalString(Dictionary& d, QString key, const std::optional<QString>& value)
{
    if (value)
        d.emplace_back(std::move(key), PropertyListValue(*value));
}

void putOptionalInteger(Dictionary& d, QString key, const std::optional<qint64>& value)
{
    if (value)
        d.emplace_back(std::move(key), PropertyListValue(*value));
}

} // namespace

std::optional<QUuid> uuidFromCanonicalText(QStringView text)
{
    if (text.size() != 36)
        return std::nullopt;
    std::array<uchar, 16> bytes{};
    int nibble = 0;
    for (qsizetype i = 0; i < 36; ++i) {
        const char16_t c = text[i].unicode();
        if (isHyphenPosition(i)) {
            if (c != u'-')
                return std::nullopt;
            continue;
        }
        const int value = hexValue(c);
        if (value < 0)
            return std::nullopt;
        bytes[size_t(nibble / 2)] = uchar(bytes[size_t(nibble / 2)] | (nibble % 2 ? value : value << 4));
        ++nibble;
    }
    const auto be = [&bytes](size_t at, int count) {
        uint value = 0;
        for (int i = 0; i < count; ++i)
            value = (value << 8) | bytes[at + size_t(i)];
        return value;
    };
    return QUuid(be(0, 4), ushort(be(4, 2)), ushort(be(6, 2)), bytes[8], bytes[9], bytes[10], bytes[11], bytes[12],
                 bytes[13], bytes[14], bytes[15]);
}

void writeCanonicalUuid(const QUuid& uuid, char16_t* out)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::array<uchar, 16> bytes{};
    for (int i = 0; i < 4; ++i)
        bytes[size_t(i)] = uchar(uuid.data1 >> (24 - 8 * i));
    bytes[4] = uchar(uuid.data2 >> 8);
    bytes[5] = uchar(uuid.data2);
    bytes[6] = uchar(uuid.data3 >> 8);
    bytes[7] = uchar(uuid.data3);
    for (int i = 0; i < 8; ++i)
        bytes[size_t(8 + i)] = uuid.data4[i];
    qsizetype position = 0;
    for (int i = 0; i < 16; ++i) {
        if (isHyphenPosition(position))
            out[position++] = u'-';
        const uchar byte = bytes[size_t(i)];
        out[position++] = char16_t(digits[byte >> 4]);
        out[position++] = char16_t(digits[byte & 0x0F]);
    }
}

QString canonicalUuidText(const QUuid& uuid)
{
    QString text(canonicalUuidLength, Qt::Uninitialized);
    writeCanonicalUuid(uuid, reinterpret_cast<char16_t*>(text.data()));
    return text;
}

// ---- Writing ---------------------------------------------------------------

PropertyListValue PropertyListRecords::encodeUuid(const QUuid& uuid)
{
    return PropertyListValue(canonicalUuidText(uuid));
}

PropertyListValue PropertyListRecords::encodeTime(AbsoluteTime time)
{
    return PropertyListValue(PropertyListValue::Date{time.secondsSinceReferenceDate});
}

PropertyListValue PropertyListRecords::encode(const BuildDiagnostic& diagnostic)
{
    Dictionary d;
    d.reserve(8);
    d.emplace_back(QStringLiteral("id"), encodeUuid(diagnostic.id));
    d.emplace_back(QStringLiteral("severity"), PropertyListValue(rawValue(diagnostic.severity)));
    d.emplace_back(QStringLiteral("message"), PropertyListValue(diagnostic.message));
    putOptionalString(d, QStringLiteral("filePath"), diagnostic.filePath);
    putOptionalInteger(d, QStringLiteral("line"), diagnostic.line);
    putOptionalInteger(d, QStringLiteral("column"), diagnostic.column);
    d.emplace_back(QStringLiteral("rawText"), PropertyListValue(diagnostic.rawText));
    d.emplace_back(QStringLiteral("timestamp"), encodeTime(diagnostic.timestamp));
    return PropertyListValue(std::move(d));
}

PropertyListValue PropertyListRecords::encode(const BuildComparison& comparison)
{
    PropertyListValue::Array ids;
    ids.reserve(size_t(comparison.newDiagnosticIDs.size()));
    for (const QUuid& id : comparison.newDiagnosticIDs)
        ids.push_back(encodeUuid(id));
    PropertyListValue::Array fixed;
    fixed.reserve(size_t(comparison.fixedDiagnostics.size()));
    for (const BuildDiagnostic& diagnostic : comparison.fixedDiagnostics)
        fixed.push_back(encode(diagnostic));

    Dictionary d;
    d.reserve(3);
    d.emplace_back(QStringLiteral("hasBaseline"), PropertyListValue(comparison.hasBaseline));
    d.emplace_back(QStringLiteral("newDiagnosticIDs"), PropertyListValue(std::move(ids)));
    d.emplace_back(QStringLiteral("fixedDiagnostics"), PropertyListValue(std::move(fixed)));
    return PropertyListValue(std::move(d));
}

PropertyListValue PropertyListRecords::encode(const BuildSession& session)
{
    PropertyListValue::Array diagnostics;
    diagnostics.reserve(size_t(session.diagnostics.size()));
    for (const BuildDiagnostic& diagnostic : session.diagnostics)
        diagnostics.push_back(encode(diagnostic));

    Dictionary d;
    d.reserve(7);
    d.emplace_back(QStringLiteral("id"), encodeUuid(session.id));
    d.emplace_back(QStringLiteral("startedAt"), encodeTime(session.startedAt));
    d.emplace_back(QStringLiteral("diagnostics"), PropertyListValue(std::move(diagnostics)));
    d.emplace_back(QStringLiteral("sourceName"), PropertyListValue(session.sourceName));
    d.emplace_back(QStringLiteral("projectName"), PropertyListValue(session.projectName));
    putOptionalString(d, QStringLiteral("activityLogPath"), session.activityLogPath);
    d.emplace_back(QStringLiteral("comparison"), encode(session.comparison));
    return PropertyListValue(std::move(d));
}

PropertyListValue PropertyListRecords::encode(const DiagnosticSignature& signature)
{
    Dictionary d;
    d.reserve(5);
    d.emplace_back(QStringLiteral("severity"), PropertyListValue(rawValue(signature.severity)));
    putOptionalString(d, QStringLiteral("filePath"), signature.filePath);
    putOptionalInteger(d, QStringLiteral("line"), signature.line);
    putOptionalInteger(d, QStringLiteral("column"), signature.column);
    d.emplace_back(QStringLiteral("message"), PropertyListValue(signature.message));
    return PropertyListValue(std::move(d));
}

PropertyListValue PropertyListRecords::encode(const DiagnosticPreferenceKey& key)
{
    Dictionary d;
    d.reserve(2);
    d.emplace_back(QStringLiteral("projectName"), PropertyListValue(key.projectName));
    d.emplace_back(QStringLiteral("signature"), encode(key.signature));
    return PropertyListValue(std::move(d));
}

// ---- Reading ---------------------------------------------------------------

bool PropertyListRecords::fail(QString reason)
{
    m_failure = std::move(reason);
    return false;
}

Result<void> PropertyListRecords::readFile(
    QByteArrayView bytes, const std::function<bool(PropertyListRecords&, const PropertyListValue&)>& read)
{
    const Result<PropertyListValue> decoded = BinaryPropertyListReader::decode(bytes);
    if (!decoded)
        return decoded.error();
    PropertyListRecords records;
    if (!read(records, decoded.value()))
        return Error{BinaryPropertyListReader::errorDomain, 0, records.failure()};
    return {};
}

bool PropertyListRecords::readRecord(const PropertyListValue& value, QStringView record,
                                     std::initializer_list<Field> fields)
{
    const Dictionary* entries = value.dictionary();
    if (!entries)
        return fail(QStringLiteral("The %1 is not a dictionary.").arg(record));
    quint32 seen = 0;
    for (const auto& entry : *entries) {
        // Not a structured binding: older clang cannot capture one in a lambda.
        const auto& key = entry.first;
        const auto& item = entry.second;
        const auto field = std::find_if(fields.begin(), fields.end(), [&key](const Field& f) { return f.key == key; });
        if (field == fields.end())
            continue;
        if (!field->read(item, key))
            return false;
        seen |= 1u << (field - fields.begin());
    }
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        if (field->required && !(seen & (1u << (field - fields.begin()))))
            return fail(QStringLiteral("The %1 lacks the key \"%2\".").arg(record, field->key));
    }
    return true;
}

const PropertyListValue::Array* PropertyListRecords::array(const PropertyListValue& value, QStringView key)
{
    const PropertyListValue::Array* elements = value.array();
    if (!elements)
        fail(QStringLiteral("\"%1\" is not an array.").arg(key));
    return elements;
}

template <typename T>
bool PropertyListRecords::take(const T* value, QStringView key, QLatin1StringView kind, T& out)
{
    if (!value)
        return fail(QStringLiteral("\"%1\" is not %2.").arg(key, kind));
    out = *value;
    return true;
}

PropertyListRecords::Read PropertyListRecords::integer(qint64& out)
{
    return [this, &out](const PropertyListValue& item, QStringView key) {
        return take(item.integer(), key, "an integer"_L1, out);
    };
}

PropertyListRecords::Read PropertyListRecords::integer(std::optional<qint64>& out)
{
    out.reset();
    return [this, &out](const PropertyListValue& item, QStringView key) {
        return take(item.integer(), key, "an integer"_L1, out.emplace());
    };
}

PropertyListRecords::Read PropertyListRecords::boolean(bool& out)
{
    return [this, &out](const PropertyListValue& item, QStringView key) {
        return take(item.boolean(), key, "a boolean"_L1, out);
    };
}

PropertyListRecords::Read PropertyListRecords::text(QString& out)
{
    return [this, &out](const PropertyListValue& item, QStringView key) {
        return take(item.string(), key, "a string"_L1, out);
    };
}

PropertyListRecords::Read PropertyListRecords::text(std::optional<QString>& out)
{
    out.reset();
    return [this, &out](const PropertyListValue& item, QStringView key) {
        return take(item.string(), key, "a string"_L1, out.emplace());
    };
}

PropertyListRecords::Read PropertyListRecords::time(AbsoluteTime& out)
{
    return [this, &out](const PropertyListValue& item, QStringView key) {
        PropertyListValue::Date date;
        if (!take(item.date(), key, "a date"_L1, date))
            return false;
        out.secondsSinceReferenceDate = date.secondsSinceReferenceDate;
        return true;
    };
}

PropertyListRecords::Read PropertyListRecords::uuid(QUuid& out)
{
    return [this, &out](const PropertyListValue& item, QStringView key) { return readElement(item, key, out); };
}

bool PropertyListRecords::readElement(const PropertyListValue& value, QStringView key, QUuid& out)
{
    const QString* string = value.string();
    const std::optional<QUuid> uuid = string ? uuidFromCanonicalText(*string) : std::nullopt;
    if (!uuid)
        return fail(QStringLiteral("\"%1\" is not a UUID.").arg(key));
    out = *uuid;
    return true;
}

PropertyListRecords::Read PropertyListRecords::severity(DiagnosticSeverity& out)
{
    return [this, &out](const PropertyListValue& item, QStringView) {
        const QString* string = item.string();
        const std::optional<DiagnosticSeverity> severity = string ? severityFromRawValue(*string) : std::nullopt;
        if (!severity)
            return fail(QStringLiteral("\"severity\" is not one of error, warning or note."));
        out = *severity;
        return true;
    };
}

bool PropertyListRecords::decode(const PropertyListValue& value, BuildDiagnostic& out)
{
    return readRecord(value, u"diagnostic",
                      {{u"id", required, uuid(out.id)},
                       {u"severity", required, severity(out.severity)},
                       {u"message", required, text(out.message)},
                       {u"filePath", optional, text(out.filePath)},
                       {u"line", optional, integer(out.line)},
                       {u"column", optional, integer(out.column)},
                       {u"rawText", required, text(out.rawText)},
                       {u"timestamp", required, time(out.timestamp)}});
}

bool PropertyListRecords::decode(const PropertyListValue& value, BuildComparison& out)
{
    return readRecord(value, u"comparison",
                      {{u"hasBaseline", required, boolean(out.hasBaseline)},
                       {u"newDiagnosticIDs", required, list(out.newDiagnosticIDs)},
                       {u"fixedDiagnostics", required, list(out.fixedDiagnostics)}});
}

bool PropertyListRecords::decode(const PropertyListValue& value, BuildSession& out)
{
    return readRecord(value, u"session",
                      {{u"id", required, uuid(out.id)},
                       {u"startedAt", required, time(out.startedAt)},
                       {u"diagnostics", required, list(out.diagnostics)},
                       {u"sourceName", required, text(out.sourceName)},
                       {u"projectName", required, text(out.projectName)},
                       {u"activityLogPath", optional, text(out.activityLogPath)},
                       {u"comparison", required, record(out.comparison)}});
}

bool PropertyListRecords::decode(const PropertyListValue& value, DiagnosticSignature& out)
{
    return readRecord(value, u"signature",
                      {{u"severity", required, severity(out.severity)},
                       {u"filePath", optional, text(out.filePath)},
                       {u"line", optional, integer(out.line)},
                       {u"column", optional, integer(out.column)},
                       {u"message", required, text(out.message)}});
}

bool PropertyListRecords::decode(const PropertyListValue& value, DiagnosticPreferenceKey& out)
{
    return readRecord(
        value, u"preference key",
        {{u"projectName", required, text(out.projectName)}, {u"signature", required, record(out.signature)}});
}

} // namespace corvane
