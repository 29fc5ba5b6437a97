#include "BuildDiagnostic.h"

#include <QStringBuilder>
#include <QVarLengthArray>

#include <string_view>

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
    // The views ask this of every note on every redraw, so ASCII messages
    // (nearly all of them) are lower-cased into bytes on the stack and
    // searched there; anything else takes the general path with full Unicode
    // lower-casing.
    if (isAscii(message)) {
        QVarLengthArray<char, 256> lowered(message.size());
        for (qsizetype i = 0; i < message.size(); ++i) {
            const char c = char(message.at(i).unicode());
            lowered[i] = (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : c;
        }
        const std::string_view text(lowered.constData(), size_t(lowered.size()));
        for (const QLatin1StringView phrase : buildNoisePhrases) {
            if (text.find(std::string_view(phrase.data(), size_t(phrase.size()))) != std::string_view::npos)
                return true;
        }
        return false;
    }
    const QString loweredText = message.toLower();
    for (const QLatin1StringView phrase : buildNoisePhrases) {
        if (loweredText.contains(phrase))
            return true;
    }
    return false;
}

} // namespace corvane
