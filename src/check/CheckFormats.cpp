#include "CheckFormats.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

namespace corvane {

namespace {

// The diagnostics a reader acts on: the new ones, or every one when there
// was nothing to compare with.
bool isReportedAsNew(const CheckedDiagnostic& entry)
{
    return entry.state == CheckState::added || entry.state == CheckState::reported;
}

// "path:line:col" with what the diagnostic has; empty without a file.
QString location(const BuildDiagnostic& d)
{
    if (!d.filePath)
        return {};
    QString text = *d.filePath;
    if (d.line) {
        text += u':' + QString::number(*d.line);
        if (d.column)
            text += u':' + QString::number(*d.column);
    }
    return text;
}

QString countsLine(const CheckReport& report)
{
    if (!report.hasBaseline)
        return QString::number(report.count(CheckState::reported)) + QStringLiteral(" diagnostics, no baseline");
    return QString::number(report.count(CheckState::added)) + QStringLiteral(" new, ")
        + QString::number(report.count(CheckState::fixed)) + QStringLiteral(" fixed, ")
        + QString::number(report.count(CheckState::unchanged)) + QStringLiteral(" unchanged");
}

QByteArray textFormat(const CheckReport& report, bool colour)
{
    const auto paint = [colour](QStringView code, const QString& text) -> QString {
        return colour ? QStringLiteral("\x1b[") + code + u'm' + text + QStringLiteral("\x1b[0m") : text;
    };
    QString out;
    if (report.hasBaseline) {
        out += paint(u"1;31", QStringLiteral("NEW ") + QString::number(report.count(CheckState::added)))
            + QStringLiteral("  ")
            + paint(u"1;32", QStringLiteral("FIXED ") + QString::number(report.count(CheckState::fixed)))
            + QStringLiteral("  unchanged ") + QString::number(report.count(CheckState::unchanged)) + u'\n';
    } else {
        out += QStringLiteral("no baseline: ") + QString::number(report.count(CheckState::reported))
            + QStringLiteral(" diagnostics\n");
    }

    // Grouped by file in the order the files first appear.
    QList<std::optional<QString>> files;
    QHash<QString, QList<const BuildDiagnostic*>> byFile;
    QList<const BuildDiagnostic*> withoutFile;
    for (const CheckedDiagnostic& entry : report.entries) {
        if (!isReportedAsNew(entry))
            continue;
        const BuildDiagnostic& d = entry.diagnostic;
        if (!d.filePath) {
            withoutFile.append(&d);
            continue;
        }
        auto& list = byFile[*d.filePath];
        if (list.isEmpty())
            files.append(*d.filePath);
        list.append(&d);
    }
    const auto entryLine = [&](const BuildDiagnostic& d) -> QString {
        const QString severity = rawValue(d.severity);
        const QString painted = paint(d.severity == DiagnosticSeverity::error         ? u"1;31"
                                          : d.severity == DiagnosticSeverity::warning ? u"1;33"
                                                                                      : u"1;36",
                                      severity + u':');
        const QString where = location(d);
        return QStringLiteral("  ") + (where.isEmpty() ? QString() : where + QStringLiteral(": ")) + painted + u' '
            + d.message + u'\n';
    };
    for (const auto& file : files) {
        out += u'\n' + paint(u"1", *file) + u'\n';
        for (const BuildDiagnostic* d : byFile.value(*file))
            out += entryLine(*d);
    }
    if (!withoutFile.isEmpty()) {
        out += u'\n' + paint(u"1", QStringLiteral("(no file)")) + u'\n';
        for (const BuildDiagnostic* d : withoutFile)
            out += entryLine(*d);
    }
    return out.toUtf8();
}

// Workflow commands end their data at a line break and their properties at
// a comma or colon, so those are percent-escaped, and "%" itself first.
QString escapeWorkflowData(QString text)
{
    return text.replace(u'%', QStringLiteral("%25"))
        .replace(u'\r', QStringLiteral("%0D"))
        .replace(u'\n', QStringLiteral("%0A"));
}

QString escapeWorkflowProperty(const QString& text)
{
    return escapeWorkflowData(text).replace(u':', QStringLiteral("%3A")).replace(u',', QStringLiteral("%2C"));
}

QByteArray githubFormat(const CheckReport& report)
{
    QString out;
    for (const CheckedDiagnostic& entry : report.entries) {
        if (!isReportedAsNew(entry))
            continue;
        const BuildDiagnostic& d = entry.diagnostic;
        const char16_t* command = d.severity == DiagnosticSeverity::error ? u"::error"
            : d.severity == DiagnosticSeverity::warning                   ? u"::warning"
                                                                          : u"::notice";
        QStringList properties;
        if (d.filePath) {
            properties.append(QStringLiteral("file=") + escapeWorkflowProperty(*d.filePath));
            if (d.line) {
                properties.append(QStringLiteral("line=") + QString::number(*d.line));
                if (d.column)
                    properties.append(QStringLiteral("col=") + QString::number(*d.column));
            }
        }
        out += QString::fromUtf16(command);
        if (!properties.isEmpty())
            out += u' ' + properties.join(u',');
        out += QStringLiteral("::") + escapeWorkflowData(d.message) + u'\n';
    }
    return out.toUtf8();
}

QString escapeMarkdown(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (QStringView(u"\\`*_[]<>|~#").contains(c))
            out += u'\\';
        out += c;
    }
    return out;
}

QString markdownTable(const CheckReport& report, bool (*pick)(const CheckedDiagnostic&), qsizetype rows)
{
    QString out = QStringLiteral("| Severity | Location | Message |\n| --- | --- | --- |\n");
    qsizetype shown = 0;
    qsizetype more = 0;
    for (const CheckedDiagnostic& entry : report.entries) {
        if (!pick(entry))
            continue;
        if (shown == rows) {
            ++more;
            continue;
        }
        ++shown;
        const BuildDiagnostic& d = entry.diagnostic;
        out += QStringLiteral("| ") + rawValue(d.severity) + QStringLiteral(" | ") + escapeMarkdown(location(d))
            + QStringLiteral(" | ") + escapeMarkdown(d.message) + QStringLiteral(" |\n");
    }
    if (more > 0)
        out += QStringLiteral("\nand ") + QString::number(more) + QStringLiteral(" more\n");
    return out;
}

QByteArray markdownFormat(const CheckReport& report, qsizetype rows)
{
    QString out = QStringLiteral("### corvane-check: ") + countsLine(report) + u'\n';
    const bool anyNew = std::any_of(report.entries.cbegin(), report.entries.cend(), isReportedAsNew);
    if (anyNew) {
        out += report.hasBaseline ? QStringLiteral("\n#### New\n\n") : QStringLiteral("\n#### Diagnostics\n\n");
        out += markdownTable(report, isReportedAsNew, rows);
    }
    if (report.count(CheckState::fixed) > 0) {
        out += QStringLiteral("\n#### Fixed\n\n");
        out += markdownTable(
            report, [](const CheckedDiagnostic& e) { return e.state == CheckState::fixed; }, rows);
    }
    return out.toUtf8();
}

QJsonObject sarifResult(const CheckedDiagnostic& entry, bool relativeToRoot)
{
    const BuildDiagnostic& d = entry.diagnostic;
    QJsonObject result;
    result.insert(QLatin1StringView("ruleId"), rawValue(d.severity));
    result.insert(QLatin1StringView("level"), rawValue(d.severity));
    result.insert(QLatin1StringView("message"), QJsonObject{{QLatin1StringView("text"), d.message}});
    if (d.filePath) {
        QJsonObject artifact;
        if (QDir::isAbsolutePath(*d.filePath)) {
            artifact.insert(QLatin1StringView("uri"), QUrl::fromLocalFile(*d.filePath).toString(QUrl::FullyEncoded));
        } else {
            artifact.insert(QLatin1StringView("uri"), QString::fromLatin1(QUrl::toPercentEncoding(*d.filePath, "/")));
            if (relativeToRoot)
                artifact.insert(QLatin1StringView("uriBaseId"), QStringLiteral("SRCROOT"));
        }
        QJsonObject physical{{QLatin1StringView("artifactLocation"), artifact}};
        // Regions count from 1; a log can print anything.
        if (d.line && *d.line >= 1) {
            QJsonObject region{{QLatin1StringView("startLine"), double(*d.line)}};
            if (d.column && *d.column >= 1)
                region.insert(QLatin1StringView("startColumn"), double(*d.column));
            physical.insert(QLatin1StringView("region"), region);
        }
        result.insert(QLatin1StringView("locations"),
                      QJsonArray{QJsonObject{{QLatin1StringView("physicalLocation"), physical}}});
    }
    if (entry.state != CheckState::reported) {
        const QString state = entry.state == CheckState::added ? QStringLiteral("new")
            : entry.state == CheckState::fixed                 ? QStringLiteral("absent")
                                                               : QStringLiteral("unchanged");
        result.insert(QLatin1StringView("baselineState"), state);
    }
    return result;
}

QByteArray sarifFormat(const CheckReport& report, const QString& toolVersion)
{
    QJsonArray rules;
    for (const DiagnosticSeverity severity : allDiagnosticSeverities) {
        const QString name = rawValue(severity);
        rules.append(QJsonObject{
            {QLatin1StringView("id"), name},
            {QLatin1StringView("shortDescription"),
             QJsonObject{{QLatin1StringView("text"), QString(QStringLiteral("Compiler ") + name + u'.')}}},
            {QLatin1StringView("defaultConfiguration"), QJsonObject{{QLatin1StringView("level"), name}}},
        });
    }
    QJsonObject driver{
        {QLatin1StringView("name"), QStringLiteral("corvane-check")},
        {QLatin1StringView("version"), toolVersion},
        {QLatin1StringView("rules"), rules},
    };
    QJsonArray results;
    for (const CheckedDiagnostic& entry : report.entries)
        results.append(sarifResult(entry, report.sourceRoot.has_value()));
    QJsonObject run{
        {QLatin1StringView("tool"), QJsonObject{{QLatin1StringView("driver"), driver}}},
        {QLatin1StringView("results"), results},
    };
    if (report.sourceRoot) {
        QString root =
            QUrl::fromLocalFile(QDir::cleanPath(QDir(*report.sourceRoot).absolutePath())).toString(QUrl::FullyEncoded);
        if (!root.endsWith(u'/'))
            root += u'/';
        run.insert(QLatin1StringView("originalUriBaseIds"),
                   QJsonObject{{QLatin1StringView("SRCROOT"), QJsonObject{{QLatin1StringView("uri"), root}}}});
    }
    QJsonObject sarif{
        {QLatin1StringView("$schema"), QStringLiteral("https://json.schemastore.org/sarif-2.1.0.json")},
        {QLatin1StringView("version"), QStringLiteral("2.1.0")},
        {QLatin1StringView("runs"), QJsonArray{run}},
    };
    return QJsonDocument(sarif).toJson(QJsonDocument::Indented);
}

QByteArray jsonFormat(const CheckReport& report)
{
    QJsonArray records;
    for (const CheckedDiagnostic& entry : report.entries) {
        const BuildDiagnostic& d = entry.diagnostic;
        QJsonObject record{
            {QLatin1StringView("state"), checkStateName(entry.state)},
            {QLatin1StringView("severity"), rawValue(d.severity)},
            {QLatin1StringView("message"), d.message},
        };
        if (d.filePath)
            record.insert(QLatin1StringView("file"), *d.filePath);
        if (d.line)
            record.insert(QLatin1StringView("line"), double(*d.line));
        if (d.column)
            record.insert(QLatin1StringView("column"), double(*d.column));
        records.append(record);
    }
    QJsonObject counts;
    for (const CheckState state : {CheckState::added, CheckState::unchanged, CheckState::fixed, CheckState::reported})
        counts.insert(checkStateName(state), double(report.count(state)));
    const QJsonObject root{
        {QLatin1StringView("version"), 1},
        {QLatin1StringView("baseline"), report.hasBaseline},
        {QLatin1StringView("counts"), counts},
        {QLatin1StringView("diagnostics"), records},
    };
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

} // namespace

std::optional<CheckFormat> checkFormatFromName(QStringView name)
{
    if (name == u"text")
        return CheckFormat::text;
    if (name == u"github")
        return CheckFormat::github;
    if (name == u"markdown")
        return CheckFormat::markdown;
    if (name == u"sarif")
        return CheckFormat::sarif;
    if (name == u"json")
        return CheckFormat::json;
    return std::nullopt;
}

QByteArray formatReport(const CheckReport& report, CheckFormat format, const FormatOptions& options)
{
    switch (format) {
    case CheckFormat::text:
        return textFormat(report, options.colour);
    case CheckFormat::github:
        return githubFormat(report);
    case CheckFormat::markdown:
        return markdownFormat(report, options.markdownRows);
    case CheckFormat::sarif:
        return sarifFormat(report, options.toolVersion);
    case CheckFormat::json:
        break;
    }
    return jsonFormat(report);
}

} // namespace corvane
