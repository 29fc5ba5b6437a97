#pragma once

#include "AbsoluteTime.h"
#include "DiagnosticSeverity.h"
#include "DiagnosticSignature.h"
#include "Hashing.h"

#include <QLatin1StringView>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>

namespace corvane {

// Messages of notes that the build system prints about itself rather than
// about the code. Lower case; a note is noise when its lower-cased message
// contains one of them.
inline constexpr std::array<QLatin1StringView, 11> buildNoisePhrases{
    QLatin1StringView("target dependency graph"),
    QLatin1StringView("build preparation"),
    QLatin1StringView("planning build"),
    QLatin1StringView("compute target dependency graph"),
    QLatin1StringView("create build description"),
    QLatin1StringView("gather provisioning inputs"),
    QLatin1StringView("write auxiliary file"),
    QLatin1StringView("process product packaging"),
    QLatin1StringView("note: using codesigning identity"),
    QLatin1StringView("run script build phase"),
    QLatin1StringView("build description signature"),
};

// One compiler diagnostic as the parser found it in a log.
struct BuildDiagnostic {
    QUuid id;
    DiagnosticSeverity severity = DiagnosticSeverity::note;
    QString message;
    std::optional<QString> filePath;
    std::optional<qint64> line;
    std::optional<qint64> column;
    QString rawText;
    AbsoluteTime timestamp;

    bool operator==(const BuildDiagnostic&) const = default;

    DiagnosticSignature signature() const;
    // Last path component of the file, or "Build" for a diagnostic without one.
    QString diagnosticFileName() const;
    // "ContentView.swift:48:17"; a column is shown only together with a line.
    QString locationLabel() const;
    // The text of "Copy Clean Error".
    QString cleanErrorText() const;
    // The text of "Copy for ChatGPT".
    QString chatGPTPrompt() const;
    bool isBuildNoise() const;
};

inline size_t qHash(const BuildDiagnostic& d, size_t seed = 0)
{
    seed = ::qHash(d.id, seed);
    seed = ::qHash(int(d.severity), seed);
    seed = ::qHash(d.message, seed);
    seed = qHashOptional(d.filePath, seed);
    seed = qHashOptional(d.line, seed);
    seed = qHashOptional(d.column, seed);
    seed = ::qHash(d.rawText, seed);
    return qHash(d.timestamp, seed);
}

} // namespace corvane
