#include "DiagnosticParser.h"

#include "ParserCandidates.h"
#include "ParserPatterns.h"
#include "ParserSearch.h"

#include <QSet>

#include <unicode/regex.h>
#include <unicode/utext.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace corvane {

namespace {

std::unique_ptr<icu::RegexPattern> compile(std::u16string_view pattern)
{
    if (pattern.empty())
        return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    const icu::UnicodeString source(false, pattern.data(), int32_t(pattern.size()));
    std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(source, UREGEX_CASE_INSENSITIVE, parseError, status));
    if (U_FAILURE(status))
        return nullptr;
    return compiled;
}

// "(/[^\n\r]+?\.(?:exts)):(\d+)..." without the path's lazy start and
// without the path group's closing parenthesis: "\.(?:exts):(\d+)...".
std::u16string locationTailPattern(std::u16string_view location)
{
    const std::u16string_view head = u"(?m)(/[^\\n\\r]+?";
    const std::u16string_view extensionsEnd = u"))";
    if (location.substr(0, head.size()) != head)
        return {};
    const std::u16string_view rest = location.substr(head.size());
    const size_t close = rest.find(extensionsEnd);
    if (close == std::u16string_view::npos)
        return {};
    std::u16string tail(rest.substr(0, close + 1));
    tail += rest.substr(close + 2);
    return tail;
}

QString slice(std::string_view text, ByteRange range)
{
    return QString::fromUtf8(text.data() + range.begin, qsizetype(range.end - range.begin));
}

} // namespace

QList<BuildDiagnostic> DiagnosticParser::diagnosticsFromMatches(std::string_view text, const PassMatches& matches)
{
    QList<BuildDiagnostic> result;
    QSet<DiagnosticSignature> signatures;
    QSet<std::pair<int, QString>> severityMessages;
    const AbsoluteTime now = AbsoluteTime::now();

    auto append = [&](BuildDiagnostic diagnostic) {
        const DiagnosticSignature signature = diagnostic.signature();
        if (signatures.contains(signature))
            return;
        signatures.insert(signature);
        severityMessages.insert({int(diagnostic.severity), diagnostic.message});
        result.append(std::move(diagnostic));
    };
    auto severityOf = [](const QString& word) {
        return severityFromRawValue(word).value_or(DiagnosticSeverity::note);
    };

    for (const LocatedMatch& m : matches.located) {
        if (!m.path.valid() || !m.line.valid() || !m.severity.valid() || !m.message.valid())
            continue;
        BuildDiagnostic d;
        d.filePath = slice(text, m.path);
        d.line = DiagnosticParser::readNumber(slice(text, m.line));
        const QString word = slice(text, m.severity).toLower();
        d.message = DiagnosticParser::cleanMessage(slice(text, m.message));
        if (m.column.valid() && !m.column.empty())
            d.column = DiagnosticParser::readNumber(slice(text, m.column));
        if (d.message.isEmpty())
            continue;
        d.severity = severityOf(word);
        QString raw = *d.filePath;
        if (d.line)
            raw += u':' + QString::number(*d.line);
        if (d.column)
            raw += u':' + QString::number(*d.column);
        d.rawText = raw + u": " + word + u": " + d.message;
        d.id = QUuid::createUuid();
        d.timestamp = now;
        append(std::move(d));
    }

    for (const SimpleMatch& m : matches.simple) {
        if (!m.severity.valid() || !m.message.valid())
            continue;
        const QString word = slice(text, m.severity).toLower();
        BuildDiagnostic d;
        d.message = DiagnosticParser::cleanMessage(slice(text, m.message));
        if (d.message.isEmpty())
            continue;
        d.severity = severityOf(word);
        // A message the log also reports with its location is kept only in
        // its located form. The word is one of the three raw values, so
        // comparing severities compares the word with the raw value.
        if (severityMessages.contains({int(d.severity), d.message}))
            continue;
        d.rawText = word + u": " + d.message;
        d.id = QUuid::createUuid();
        d.timestamp = now;
        append(std::move(d));
    }
    return result;
}

DiagnosticParser::DiagnosticParser()
{
    auto patterns = std::make_shared<Patterns>();
    patterns->location = compile(locationPattern);
    patterns->locationTail = compile(locationTailPattern(locationPattern));
    patterns->simple = compile(simplePattern);
    m_patterns = std::move(patterns);
}

QList<BuildDiagnostic> DiagnosticParser::parse(const QString& text) const
{
    const QByteArray utf8 = text.toUtf8();
    return parse(std::string_view(utf8.constData(), size_t(utf8.size())));
}

QList<BuildDiagnostic> DiagnosticParser::parse(std::string_view utf8Text) const
{
    // Characters U+0000 to U+0003 separate pieces of a log like line breaks
    // do. The activity log reader never leaves them in its text, so the copy
    // is rare.
    std::string copy;
    if (hasPieceSeparators(utf8Text)) {
        copy = withPieceSeparatorsAsLineFeeds(utf8Text);
        utf8Text = copy;
    }
    PassMatches matches;
    matches.located = locatedMatches(utf8Text);
    matches.simple = simpleMatches(utf8Text);
    return diagnosticsFromMatches(utf8Text, matches);
}

std::vector<LocatedMatch> DiagnosticParser::locatedMatches(std::string_view normalisedUtf8) const
{
    // The tail is cut from the same constant pattern, so it compiles
    // whenever the whole pattern does.
    if (!m_patterns->location || !m_patterns->locationTail)
        return {};
    return findLocatedAtCandidates(*m_patterns->location, *m_patterns->locationTail, normalisedUtf8);
}

std::vector<SimpleMatch> DiagnosticParser::simpleMatches(std::string_view normalisedUtf8) const
{
    if (!m_patterns->simple)
        return {};
    return findSimpleAtCandidates(*m_patterns->simple, normalisedUtf8);
}

QString DiagnosticParser::cleanMessage(QStringView captured)
{
    QString cleaned;
    cleaned.reserve(captured.size());
    bool inSpaces = false;
    for (const QChar c : captured) {
        const bool space = c == u' ' || c == u'\t';
        if (space) {
            if (!inSpaces)
                cleaned.append(u' ');
            inSpaces = true;
        } else {
            cleaned.append(c);
            inSpaces = false;
        }
    }
    return cleaned.trimmed();
}

std::optional<qint64> DiagnosticParser::readNumber(QStringView captured)
{
    if (captured.isEmpty())
        return std::nullopt;
    bool negative = false;
    qsizetype i = 0;
    if (captured[0] == u'+' || captured[0] == u'-') {
        negative = captured[0] == u'-';
        i = 1;
    }
    if (i == captured.size())
        return std::nullopt;
    // Accumulate towards the negative side, which holds one more value.
    constexpr qint64 minimum = std::numeric_limits<qint64>::min();
    qint64 value = 0;
    for (; i < captured.size(); ++i) {
        const char16_t c = captured[i].unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        const int digit = c - u'0';
        if (value < (minimum + digit) / 10)
            return std::nullopt;
        value = value * 10 - digit;
    }
    if (negative)
        return value;
    if (value == minimum)
        return std::nullopt;
    return -value;
}

} // namespace corvane
