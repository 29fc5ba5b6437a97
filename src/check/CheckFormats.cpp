#include "CheckFormats.h"

#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <algorithm>
#include <cstdio>

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

// Paths as file URIs; a report names each file many times, and turning a
// path into a URI is the slowest part of a result.
class FileUris {
public:
    const QString& of(const QString& path)
    {
        auto it = m_uris.find(path);
        if (it == m_uris.end())
            it = m_uris.insert(path, QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
        return *it;
    }

private:
    QHash<QString, QString> m_uris;
};

// SARIF results written as text in the layout of QJsonDocument's indented
// form, keys in its order: a large log has tens of thousands of results, and
// building them as a JSON tree first took longer than reading the log.
class SarifResultsText {
public:
    SarifResultsText(bool relativeToRoot, int depth) : m_relativeToRoot(relativeToRoot), m_depth(depth) {}

    void append(const CheckedDiagnostic& entry)
    {
        const BuildDiagnostic& d = entry.diagnostic;
        if (!m_text.isEmpty())
            m_text += ",\n";
        line(0, "{");
        if (entry.state != CheckState::reported) {
            const char* state = entry.state == CheckState::added ? "new"
                : entry.state == CheckState::fixed               ? "absent"
                                                                 : "unchanged";
            member(1, "baselineState", QLatin1StringView(state), true);
        }
        member(1, "level", rawValue(d.severity), true);
        if (d.filePath) {
            line(1, "\"locations\": [");
            line(2, "{");
            line(3, "\"physicalLocation\": {");
            line(4, "\"artifactLocation\": {");
            const bool region = d.line && *d.line >= 1;
            if (QDir::isAbsolutePath(*d.filePath)) {
                member(5, "uri", m_uris.of(*d.filePath), false);
            } else {
                const QString uri = QString::fromLatin1(QUrl::toPercentEncoding(*d.filePath, "/"));
                member(5, "uri", uri, m_relativeToRoot);
                if (m_relativeToRoot)
                    member(5, "uriBaseId", QLatin1StringView("SRCROOT"), false);
            }
            line(4, region ? "}," : "}");
            // Regions count from 1; a log can print anything.
            if (region) {
                line(4, "\"region\": {");
                if (d.column && *d.column >= 1)
                    number(5, "startColumn", *d.column, true);
                number(5, "startLine", *d.line, false);
                line(4, "}");
            }
            line(3, "}");
            line(2, "}");
            line(1, "],");
        }
        line(1, "\"message\": {");
        member(2, "text", d.message, false);
        line(1, "},");
        member(1, "ruleId", rawValue(d.severity), false);
        indent(0);
        m_text += '}';
    }

    const QByteArray& text() const { return m_text; }

private:
    void indent(int level) { m_text.append(4 * (m_depth + level), ' '); }

    void line(int level, const char* text)
    {
        indent(level);
        m_text += text;
        m_text += '\n';
    }

    void member(int level, const char* key, QStringView value, bool more)
    {
        indent(level);
        m_text += '"';
        m_text += key;
        m_text += "\": ";
        appendString(value);
        m_text += more ? ",\n" : "\n";
    }
    void member(int level, const char* key, QLatin1StringView value, bool more)
    {
        member(level, key, QString(value), more);
    }

    void number(int level, const char* key, qint64 value, bool more)
    {
        indent(level);
        m_text += '"';
        m_text += key;
        m_text += "\": ";
        m_text += QByteArray::number(value);
        m_text += more ? ",\n" : "\n";
    }

    // A JSON string: quotes, backslashes and control characters escaped,
    // everything else as UTF-8, converted a run at a time so that surrogate
    // pairs stay together.
    void appendString(QStringView value)
    {
        const auto needsEscape = [](QChar c) { return c.unicode() < 0x20 || c == u'"' || c == u'\\'; };
        m_text += '"';
        for (qsizetype start = 0; start < value.size();) {
            const qsizetype end = std::find_if(value.begin() + start, value.end(), needsEscape) - value.begin();
            m_text += value.sliced(start, end - start).toUtf8();
            if (end == value.size())
                break;
            const char16_t u = value[end].unicode();
            switch (u) {
            case u'"':
                m_text += "\\\"";
                break;
            case u'\\':
                m_text += "\\\\";
                break;
            case u'\b':
                m_text += "\\b";
                break;
            case u'\f':
                m_text += "\\f";
                break;
            case u'\n':
                m_text += "\\n";
                break;
            case u'\r':
                m_text += "\\r";
                break;
            case u'\t':
                m_text += "\\t";
                break;
            default: {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", unsigned(u));
                m_text += escaped;
            }
            }
            start = end + 1;
        }
        m_text += '"';
    }

    bool m_relativeToRoot;
    int m_depth;
    FileUris m_uris;
    QByteArray m_text;
};

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
    // The results go into their place in the document as text; a string
    // holds it meanwhile, whose quotes no other value can end with.
    const QString resultsPlace = QStringLiteral("corvane-check results");
    QJsonObject run{
        {QLatin1StringView("tool"), QJsonObject{{QLatin1StringView("driver"), driver}}},
        {QLatin1StringView("results"), report.entries.isEmpty() ? QJsonValue(QJsonArray()) : QJsonValue(resultsPlace)},
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
    QByteArray document = QJsonDocument(sarif).toJson(QJsonDocument::Indented);
    if (report.entries.isEmpty())
        return document;
    // "runs": [ { "results": ... at the third level.
    SarifResultsText results(report.sourceRoot.has_value(), 4);
    for (const CheckedDiagnostic& entry : report.entries)
        results.append(entry);
    const QByteArray place = "\"results\": \"" + resultsPlace.toUtf8() + '"';
    const qsizetype at = document.indexOf(place);
    Q_ASSERT(at >= 0);
    const QByteArray array = "\"results\": [\n" + results.text() + '\n' + QByteArray(12, ' ') + ']';
    document.replace(at, place.size(), array);
    return document;
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
