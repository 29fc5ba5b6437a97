#pragma once

#include "CheckReport.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace corvane {

// The ways a check report can be written out.
enum class CheckFormat { text, github, markdown, sarif, json };

std::optional<CheckFormat> checkFormatFromName(QStringView name);

struct FormatOptions {
    // ANSI colours in the text format.
    bool colour = false;
    // Rows per table in the markdown format before "and N more".
    qsizetype markdownRows = 50;
    QString toolVersion;
};

QByteArray formatReport(const CheckReport& report, CheckFormat format, const FormatOptions& options);

} // namespace corvane
