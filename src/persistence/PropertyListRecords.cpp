#include "PropertyListRecords.h"

#include <array>

namespace corvane {

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

constexpr bool isHyphenPosition(qsizetype i)
{
    return i == 8 || i == 13 || i == 18 || i == 23;
}

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
    return QUuid(be(0, 4), ushort(be(4, 2)), ushort(be(6, 2)), bytes[8], bytes[9], bytes[10],
                 bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
}

QString canonicalUuidText(const QUuid& uuid)
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
    QString text(36, Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(text.data());
    qsizetype position = 0;
    for (int i = 0; i < 16; ++i) {
        if (isHyphenPosition(position))
            out[position++] = u'-';
        const uchar byte = bytes[size_t(i)];
        out[position++] = char16_t(digits[byte >> 4]);
        out[position++] = char16_t(digits[byte & 0x0F]);
    }
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

bool PropertyListRecords::missing(QStringView key, QStringView record)
{
    return fail(QStringLiteral("The %1 lacks the key \"%2\".").arg(record, key));
}

const Dictionary* PropertyListRecords::dictionary(const PropertyListValue& value, QStringView what)
{
    const Dictionary* d = value.dictionary();
    if (!d)
        fail(QStringLiteral("The %1 is not a dictionary.").arg(what));
    return d;
}

bool PropertyListRecords::readInteger(const PropertyListValue& value, QStringView key, qint64& out)
{
    const qint64* integer = value.integer();
    if (!integer)
        return fail(QStringLiteral("\"%1\" is not an integer.").arg(key));
    out = *integer;
    return true;
}

bool PropertyListRecords::readBoolean(const PropertyListValue& value, QStringView key, bool& out)
{
    const bool* boolean = value.boolean();
    if (!boolean)
        return fail(QStringLiteral("\"%1\" is not a boolean.").arg(key));
    out = *boolean;
    return true;
}

bool PropertyListRecords::readTime(const PropertyListValue& value, QStringView key, AbsoluteTime& out)
{
    const PropertyListValue::Date* date = value.date();
    if (!date)
        return fail(QStringLiteral("\"%1\" is not a date.").arg(key));
    out.secondsSinceReferenceDate = date->secondsSinceReferenceDate;
    return true;
}

bool PropertyListRecords::readString(const PropertyListValue& value, QStringView key, QString& out)
{
    const QString* string = value.string();
    if (!string)
        return fail(QStringLiteral("\"%1\" is not a string.").arg(key));
    out = *string;
    return true;
}

bool PropertyListRecords::readUuid(const PropertyListValue& value, QStringView key, QUuid& out)
{
    const QString* string = value.string();
    const std::optional<QUuid> uuid = string ? uuidFromCanonicalText(*string) : std::nullopt;
    if (!uuid)
        return fail(QStringLiteral("\"%1\" is not a UUID.").arg(key));
    out = *uuid;
    return true;
}

bool PropertyListRecords::readSeverity(const PropertyListValue& value, DiagnosticSeverity& out)
{
    const QString* string = value.string();
    const std::optional<DiagnosticSeverity> severity =
        string ? severityFromRawValue(*string) : std::nullopt;
    if (!severity)
        return fail(QStringLiteral("\"severity\" is not one of error, warning or note."));
    out = *severity;
    return true;
}

bool PropertyListRecords::decode(const PropertyListValue& value, BuildDiagnostic& out)
{
    const Dictionary* entries = dictionary(value, u"diagnostic");
    if (!entries)
        return false;
    enum : unsigned { id = 1, severity = 2, message = 4, rawText = 8, timestamp = 16, all = 31 };
    unsigned seen = 0;
    out.filePath.reset();
    out.line.reset();
    out.column.reset();
    for (const auto& [key, item] : *entries) {
        bool ok = true;
        if (key == u"id") {
            ok = readUuid(item, key, out.id);
            seen |= id;
        } else if (key == u"severity") {
            ok = readSeverity(item, out.severity);
            seen |= severity;
        } else if (key == u"message") {
            ok = readString(item, key, out.message);
            seen |= message;
        } else if (key == u"filePath") {
            ok = readString(item, key, out.filePath.emplace());
        } else if (key == u"line") {
            ok = readInteger(item, key, out.line.emplace());
        } else if (key == u"column") {
            ok = readInteger(item, key, out.column.emplace());
        } else if (key == u"rawText") {
            ok = readString(item, key, out.rawText);
            seen |= rawText;
        } else if (key == u"timestamp") {
            ok = readTime(item, key, out.timestamp);
            seen |= timestamp;
        }
        if (!ok)
            return false;
    }
    if (seen != all) {
        const auto absent = [&](unsigned bit) { return !(seen & bit); };
        return missing(absent(id)          ? u"id"
                       : absent(severity)  ? u"severity"
                       : absent(message)   ? u"message"
                       : absent(rawText)   ? u"rawText"
                                           : u"timestamp",
                       u"diagnostic");
    }
    return true;
}

bool PropertyListRecords::decode(const PropertyListValue& value, BuildComparison& out)
{
    const Dictionary* entries = dictionary(value, u"comparison");
    if (!entries)
        return false;
    enum : unsigned { hasBaseline = 1, newIDs = 2, fixed = 4, all = 7 };
    unsigned seen = 0;
    for (const auto& [key, item] : *entries) {
        if (key == u"hasBaseline") {
            if (!readBoolean(item, key, out.hasBaseline))
                return false;
            seen |= hasBaseline;
        } else if (key == u"newDiagnosticIDs") {
            const PropertyListValue::Array* ids = item.array();
            if (!ids)
                return fail(QStringLiteral("\"newDiagnosticIDs\" is not an array."));
            out.newDiagnosticIDs.clear();
            out.newDiagnosticIDs.reserve(qsizetype(ids->size()));
            for (const PropertyListValue& element : *ids) {
                QUuid uuid;
                if (!readUuid(element, key, uuid))
                    return false;
                out.newDiagnosticIDs.insert(uuid);
            }
            seen |= newIDs;
        } else if (key == u"fixedDiagnostics") {
            const PropertyListValue::Array* diagnostics = item.array();
            if (!diagnostics)
                return fail(QStringLiteral("\"fixedDiagnostics\" is not an array."));
            out.fixedDiagnostics.clear();
            out.fixedDiagnostics.resize(qsizetype(diagnostics->size()));
            for (size_t i = 0; i < diagnostics->size(); ++i) {
                if (!decode((*diagnostics)[i], out.fixedDiagnostics[qsizetype(i)]))
                    return false;
            }
            seen |= fixed;
        }
    }
    if (seen != all)
        return missing(!(seen & hasBaseline) ? u"hasBaseline"
                       : !(seen & newIDs)    ? u"newDiagnosticIDs"
                                             : u"fixedDiagnostics",
                       u"comparison");
    return true;
}

bool PropertyListRecords::decode(const PropertyListValue& value, BuildSession& out)
{
    const Dictionary* entries = dictionary(value, u"session");
    if (!entries)
        return false;
    enum : unsigned {
        id = 1, startedAt = 2, diagnostics = 4, sourceName = 8, projectName = 16, comparison = 32,
        all = 63
    };
    unsigned seen = 0;
    out.activityLogPath.reset();
    for (const auto& [key, item] : *entries) {
        bool ok = true;
        if (key == u"id") {
            ok = readUuid(item, key, out.id);
            seen |= id;
        } else if (key == u"startedAt") {
            ok = readTime(item, key, out.startedAt);
            seen |= startedAt;
        } else if (key == u"diagnostics") {
            const PropertyListValue::Array* list = item.array();
            if (!list)
                return fail(QStringLiteral("\"diagnostics\" is not an array."));
            out.diagnostics.clear();
            out.diagnostics.resize(qsizetype(list->size()));
            for (size_t i = 0; i < list->size() && ok; ++i)
                ok = decode((*list)[i], out.diagnostics[qsizetype(i)]);
            seen |= diagnostics;
        } else if (key == u"sourceName") {
            ok = readString(item, key, out.sourceName);
            seen |= sourceName;
        } else if (key == u"projectName") {
            ok = readString(item, key, out.projectName);
            seen |= projectName;
        } else if (key == u"activityLogPath") {
            ok = readString(item, key, out.activityLogPath.emplace());
        } else if (key == u"comparison") {
            out.comparison = BuildComparison::empty();
            ok = decode(item, out.comparison);
            seen |= comparison;
        }
        if (!ok)
            return false;
    }
    if (seen != all) {
        const auto absent = [&](unsigned bit) { return !(seen & bit); };
        return missing(absent(id)            ? u"id"
                       : absent(startedAt)   ? u"startedAt"
                       : absent(diagnostics) ? u"diagnostics"
                       : absent(sourceName)  ? u"sourceName"
                       : absent(projectName) ? u"projectName"
                                             : u"comparison",
                       u"session");
    }
    return true;
}

bool PropertyListRecords::decode(const PropertyListValue& value, DiagnosticSignature& out)
{
    const Dictionary* entries = dictionary(value, u"signature");
    if (!entries)
        return false;
    enum : unsigned { severity = 1, message = 2, all = 3 };
    unsigned seen = 0;
    out.filePath.reset();
    out.line.reset();
    out.column.reset();
    for (const auto& [key, item] : *entries) {
        bool ok = true;
        if (key == u"severity") {
            ok = readSeverity(item, out.severity);
            seen |= severity;
        } else if (key == u"filePath") {
            ok = readString(item, key, out.filePath.emplace());
        } else if (key == u"line") {
            ok = readInteger(item, key, out.line.emplace());
        } else if (key == u"column") {
            ok = readInteger(item, key, out.column.emplace());
        } else if (key == u"message") {
            ok = readString(item, key, out.message);
            seen |= message;
        }
        if (!ok)
            return false;
    }
    if (seen != all)
        return missing(!(seen & severity) ? u"severity" : u"message", u"signature");
    return true;
}

bool PropertyListRecords::decode(const PropertyListValue& value, DiagnosticPreferenceKey& out)
{
    const Dictionary* entries = dictionary(value, u"preference key");
    if (!entries)
        return false;
    enum : unsigned { projectName = 1, signature = 2, all = 3 };
    unsigned seen = 0;
    for (const auto& [key, item] : *entries) {
        bool ok = true;
        if (key == u"projectName") {
            ok = readString(item, key, out.projectName);
            seen |= projectName;
        } else if (key == u"signature") {
            ok = decode(item, out.signature);
            seen |= signature;
        }
        if (!ok)
            return false;
    }
    if (seen != all)
        return missing(!(seen & projectName) ? u"projectName" : u"signature", u"preference key");
    return true;
}

} // namespace corvane
