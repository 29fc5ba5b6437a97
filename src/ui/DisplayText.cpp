#include "DisplayText.h"

#include <QLocale>
#include <QTextBoundaryFinder>

namespace corvane::displayText {

namespace {

constexpr char16_t breakHint = 0x200B; // ZERO WIDTH SPACE
// Runs up to this long wrap as words do; longer ones get a hint this often.
constexpr qsizetype longestRun = 64;
constexpr qsizetype hintSpacing = 8;

// Neither half of a surrogate pair nor a base and its combining marks are
// pulled apart by a hint.
bool startsCharacter(const QString& text, qsizetype i)
{
    const QChar c = text.at(i);
    return !c.isLowSurrogate() && !c.isMark();
}

} // namespace

QString bounded(const QString& text, qsizetype limit)
{
    if (text.size() <= limit)
        return text;
    qsizetype cut = limit;
    while (cut > 0 && !startsCharacter(text, cut))
        --cut;
    return text.left(cut) % u"… (" % QLocale().toString(text.size() - cut) % u" more characters)";
}

QString withBreakHints(const QString& text)
{
    QString result;
    qsizetype copied = 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Line, text);
    qsizetype runStart = 0;
    while (runStart < text.size()) {
        qsizetype runEnd = finder.toNextBoundary();
        if (runEnd < 0)
            runEnd = text.size();
        if (runEnd - runStart > longestRun) {
            for (qsizetype at = runStart + hintSpacing; at < runEnd; at += hintSpacing) {
                while (at < runEnd && !startsCharacter(text, at))
                    ++at;
                if (at == runEnd)
                    break;
                result += QStringView(text).sliced(copied, at - copied);
                result += QChar(breakHint);
                copied = at;
            }
        }
        runStart = runEnd;
    }
    if (copied == 0)
        return text;
    result += QStringView(text).sliced(copied);
    return result;
}

QString withoutBreakHints(QString text)
{
    text.remove(QChar(breakHint));
    return text;
}

} // namespace corvane::displayText
