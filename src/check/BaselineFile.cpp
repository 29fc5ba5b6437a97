#include "BaselineFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <algorithm>
#include <tuple>

namespace corvane::BaselineFile {

namespace {

const QString errorDomain = QStringLiteral("Corvane.Baseline");

Error damaged(const QString& why) { return Error{errorDomain, 1, QStringLiteral("damaged baseline file: ") + why}; }

bool readOptionalInteger(const QJsonObject& record, QLatin1StringView key, std::optional<qint64>& out)
{
    const QJsonValue value = record.value(key);
    if (value.isUndefined())
        return true;
    // JSON numbers are doubles; anything past 2^53 would not come back exact.
    const double number = value.toDouble(0.5);
    if (!value.isDouble() || number != double(qint64(number)) || std::abs(number) > 9007199254740992.0)
        return false;
    out = qint64(number);
    return true;
}

} // namespace

QByteArray encode(const QList<BuildDiagnostic>& diagnostics)
{
    QList<const BuildDiagnostic*> sorted;
    sorted.reserve(diagnostics.size());
    for (const BuildDiagnostic& diagnostic : diagnostics)
        sorted.append(&diagnostic);
    const auto key = [](const BuildDiagnostic* d) {
        return std::tuple(d->filePath.has_value(), d->filePath.value_or(QString()), d->line.value_or(0),
                          d->line.has_value(), d->column.value_or(0), d->column.has_value(), int(d->severity),
                          d->message);
    };
    std::sort(sorted.begin(), sorted.end(), [&](auto a, auto b) { return key(a) < key(b); });

    QJsonArray records;
    for (const BuildDiagnostic* d : sorted) {
        QJsonObject record;
        record.insert(QLatin1StringView("severity"), rawValue(d->severity));
        record.insert(QLatin1StringView("message"), d->message);
        if (d->filePath)
            record.insert(QLatin1StringView("file"), *d->filePath);
        if (d->line)
            record.insert(QLatin1StringView("line"), double(*d->line));
        if (d->column)
            record.insert(QLatin1StringView("column"), double(*d->column));
        records.append(record);
    }
    QJsonObject root;
    root.insert(QLatin1StringView("format"), formatName);
    root.insert(QLatin1StringView("version"), double(version));
    root.insert(QLatin1StringView("diagnostics"), records);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

Result<QList<BuildDiagnostic>> decode(QByteArrayView bytes)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes.toByteArray(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return damaged(parseError.errorString() + QStringLiteral(" at byte ") + QString::number(parseError.offset));
    const QJsonObject root = document.object();
    if (!document.isObject() || root.value(QLatin1StringView("format")).toString() != formatName)
        return damaged(QStringLiteral("not a corvane-check baseline"));
    const QJsonValue fileVersion = root.value(QLatin1StringView("version"));
    if (!fileVersion.isDouble())
        return damaged(QStringLiteral("no version"));
    if (fileVersion.toDouble() != double(version))
        return Error{errorDomain, 2,
                     QStringLiteral("baseline file of version ") + QString::number(fileVersion.toDouble())
                         + QStringLiteral(", this program reads version ") + QString::number(version)};
    const QJsonValue records = root.value(QLatin1StringView("diagnostics"));
    if (!records.isArray())
        return damaged(QStringLiteral("no list of diagnostics"));

    QList<BuildDiagnostic> diagnostics;
    const QJsonArray array = records.toArray();
    diagnostics.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        const QJsonObject record = array.at(i).toObject();
        const QJsonValue file = record.value(QLatin1StringView("file"));
        BuildDiagnostic d;
        d.id = QUuid::createUuid();
        const auto severity = severityFromRawValue(record.value(QLatin1StringView("severity")).toString());
        d.message = record.value(QLatin1StringView("message")).toString();
        const bool fileOk = file.isUndefined() || file.isString();
        if (!array.at(i).isObject() || !severity || d.message.isEmpty() || !fileOk
            || !readOptionalInteger(record, QLatin1StringView("line"), d.line)
            || !readOptionalInteger(record, QLatin1StringView("column"), d.column))
            return damaged(QStringLiteral("diagnostic ") + QString::number(i + 1) + QStringLiteral(" is not valid"));
        d.severity = *severity;
        if (file.isString())
            d.filePath = file.toString();
        diagnostics.append(std::move(d));
    }
    return diagnostics;
}

} // namespace corvane::BaselineFile
