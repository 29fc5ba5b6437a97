#include "BuildDiagnostic.h"

#include <QStringBuilder>

namespace corvane {

namespace {

QString number(qint64 value)
{
    return QString::number(value);
}

bool isAscii(const QString& text)
{
    for (const QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

} // namespace

DiagnosticSignature BuildDiagnostic::signature() const
{
    return {severity, filePath, line, column, message};
}

QString BuildDiagnostic::diagnosticFileName() const
{
    if (!filePath)
        return QStringLiteral("Build");
    const qsizetype slash = filePath->lastIndexOf(u'/');
    return slash < 0 ? *filePath : filePath->mid(slash + 1);
}

QString BuildDiagnostic::locationLabel() const
{
    QString label = diagnosticFileName();
    if (line) {
        label += u':' + number(*line);
        if (column)
            label += u':' + number(*column);
    }
    return label;
}

QString BuildDiagnostic::cleanErrorText() const
{
    const QString severityLine = rawValue(severity).toUpper() % u": " % message;
    if (!filePath)
        return severityLine;
    QString location = *filePath;
    if (line) {
        location += u':' + number(*line);
        if (column)
            location += u':' + number(*column);
    }
    return location % u'\n' % severityLine;
}

QString BuildDiagnostic::chatGPTPrompt() const
{
    const QString unknown = QStringLiteral("Unknown");
    return u"Xcode build diagnostic\n\nSeverity: " % rawValue(severity)
        % u"\nFile: " % filePath.value_or(unknown)
        % u"\nLine: " % (line ? number(*line) : unknown)
        % u"\nColumn: " % (column ? number(*column) : unknown)
        % u"\n\nMessage:\n" % message
        % u"\n\nRaw diagnostic:\n" % rawText;
}

bool BuildDiagnostic::isBuildNoise() const
{
    if (severity != DiagnosticSeverity::note)
        return false;
    // For ASCII text a case-insensitive search is exactly "lower-case, then
    // search" and saves an allocation per call; anything else takes the
    // general path with full Unicode lower-casing.
    if (isAscii(message)) {
        for (const QLatin1StringView phrase : buildNoisePhrases) {
            if (message.contains(phrase, Qt::CaseInsensitive))
                return true;
        }
        return false;
    }
    const QString lowered = message.toLower();
    for (const QLatin1StringView phrase : buildNoisePhrases) {
        if (lowered.contains(phrase))
            return true;
    }
    return false;
}

} // namespace corvane
