#include "CheckCommand.h"

#include "BaselineFile.h"
#include "CheckFormats.h"
#include "CheckInput.h"
#include "CheckReport.h"
#include "DiagnosticParser.h"
#include "StartBeside.h"

#include <QCommandLineParser>
#include <QSaveFile>

#include <algorithm>
#include <future>
#include <memory>
#include <variant>
#include <vector>

namespace corvane {

namespace {

enum class Gate { newErrors, newWarnings, errors, never };

struct Output {
    std::optional<CheckFormat> format;
    // Standard output when absent.
    std::optional<QString> file;
    QByteArray bytes;
};

struct Options {
    QString log;
    std::optional<QString> baselineFile;
    std::optional<QString> baselineLog;
    std::optional<QString> historyProject;
    std::optional<QString> historyFile;
    MatchMode match = MatchMode::exact;
    Gate gate = Gate::newWarnings;
    std::optional<QString> relativeTo;
    std::optional<QString> writeBaseline;
    std::vector<Output> outputs;
    bool help = false;
    bool version = false;
};

struct UsageError {
    QString message;
};

std::variant<Options, UsageError> parseOptions(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption baseline(QStringLiteral("baseline"), {}, QStringLiteral("FILE"));
    const QCommandLineOption baselineLog(QStringLiteral("baseline-log"), {}, QStringLiteral("FILE"));
    const QCommandLineOption baselineHistory(QStringLiteral("baseline-history"), {}, QStringLiteral("PROJECT"));
    const QCommandLineOption historyFile(QStringLiteral("history-file"), {}, QStringLiteral("FILE"));
    const QCommandLineOption match(QStringLiteral("match"), {}, QStringLiteral("MODE"));
    const QCommandLineOption failOn(QStringLiteral("fail-on"), {}, QStringLiteral("GATE"));
    const QCommandLineOption format(QStringLiteral("format"), {}, QStringLiteral("NAME[=FILE]"));
    const QCommandLineOption relativeTo(QStringLiteral("relative-to"), {}, QStringLiteral("DIR"));
    const QCommandLineOption writeBaseline(QStringLiteral("write-baseline"), {}, QStringLiteral("FILE"));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, {});
    const QCommandLineOption version(QStringLiteral("version"), {});
    parser.addOptions({baseline, baselineLog, baselineHistory, historyFile, match, failOn, format, relativeTo,
                       writeBaseline, help, version});
    if (!parser.parse(QStringList{QStringLiteral("corvane-check")} + arguments))
        return UsageError{parser.errorText()};

    Options options;
    options.help = parser.isSet(help);
    options.version = parser.isSet(version);
    if (options.help || options.version)
        return options;

    const auto single = [&](const QCommandLineOption& option) -> std::optional<QString> {
        if (!parser.isSet(option))
            return std::nullopt;
        return parser.values(option).constLast();
    };
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1)
        return UsageError{positional.isEmpty() ? QStringLiteral("no build log given (a path, or - for standard input)")
                                               : QStringLiteral("more than one build log given")};
    options.log = positional.constFirst();
    options.baselineFile = single(baseline);
    options.baselineLog = single(baselineLog);
    options.historyProject = single(baselineHistory);
    options.historyFile = single(historyFile);
    options.relativeTo = single(relativeTo);
    options.writeBaseline = single(writeBaseline);
    if (int(options.baselineFile.has_value()) + int(options.baselineLog.has_value())
            + int(options.historyProject.has_value())
        > 1)
        return UsageError{QStringLiteral("give one of --baseline, --baseline-log and --baseline-history")};
    if (options.historyFile && !options.historyProject)
        return UsageError{QStringLiteral("--history-file needs --baseline-history PROJECT")};
    if ((options.baselineLog == u"-" || options.baselineFile == u"-") && options.log == u"-")
        return UsageError{QStringLiteral("standard input can be read only once")};

    if (const auto mode = single(match)) {
        if (*mode == u"exact")
            options.match = MatchMode::exact;
        else if (*mode == u"moved")
            options.match = MatchMode::moved;
        else
            return UsageError{QStringLiteral("unknown --match mode \"") + *mode + QStringLiteral("\" (exact, moved)")};
    }
    if (const auto gate = single(failOn)) {
        if (*gate == u"new-errors")
            options.gate = Gate::newErrors;
        else if (*gate == u"new-warnings")
            options.gate = Gate::newWarnings;
        else if (*gate == u"errors")
            options.gate = Gate::errors;
        else if (*gate == u"never")
            options.gate = Gate::never;
        else
            return UsageError{QStringLiteral("unknown --fail-on gate \"") + *gate
                              + QStringLiteral("\" (new-errors, new-warnings, errors, never)")};
    }
    for (const QString& value : parser.values(format)) {
        const qsizetype equals = value.indexOf(u'=');
        const QString name = equals < 0 ? value : value.first(equals);
        Output output;
        output.format = checkFormatFromName(name);
        if (!output.format)
            return UsageError{QStringLiteral("unknown format \"") + name
                              + QStringLiteral("\" (text, github, markdown, sarif, json)")};
        if (equals >= 0 && value.sliced(equals + 1) != u"-") {
            output.file = value.sliced(equals + 1);
            if (output.file->isEmpty())
                return UsageError{QStringLiteral("no file after \"") + name + QStringLiteral("=\"")};
        }
        options.outputs.push_back(std::move(output));
    }
    if (options.outputs.empty())
        options.outputs.push_back({CheckFormat::text, std::nullopt, {}});
    return options;
}

bool gateFails(Gate gate, const CheckReport& report)
{
    const qsizetype newErrors = report.count(CheckState::added, DiagnosticSeverity::error);
    switch (gate) {
    case Gate::newErrors:
        return newErrors > 0;
    case Gate::newWarnings:
        return newErrors > 0 || report.count(CheckState::added, DiagnosticSeverity::warning) > 0;
    case Gate::errors:
        return std::any_of(report.entries.cbegin(), report.entries.cend(), [](const CheckedDiagnostic& e) {
            return e.state != CheckState::fixed && e.diagnostic.severity == DiagnosticSeverity::error;
        });
    case Gate::never:
        break;
    }
    return false;
}

} // namespace

QString CheckCommand::helpText()
{
    return QStringLiteral(R"(Usage: corvane-check [OPTIONS] LOG

Reports which compiler diagnostics of a build are new and which were fixed
since a baseline build, and fails when the gate says so. LOG is an Xcode
activity log (gzip), a plain-text build log, or - for standard input.

Baseline (at most one; without one everything is reported and nothing is new):
  --baseline FILE            a baseline file written by --write-baseline
  --baseline-log FILE        an earlier build log
  --baseline-history PROJECT the newest build of PROJECT in Corvane's history
  --history-file FILE        read that history file instead of Corvane's own

Matching:
  --match exact              same severity, file, line, column and message,
                             as the Corvane window compares (the default)
  --match moved              same severity, file and message; a line or column
                             that moved is no change
  --relative-to DIR          report and match paths relative to DIR

Gate:
  --fail-on new-warnings     fail on a new warning or error (the default)
  --fail-on new-errors       fail on a new error
  --fail-on errors           fail on any error, new or not
  --fail-on never            never fail

Output (any number; the default is text on standard output):
  --format NAME[=FILE]       NAME is text, github, markdown, sarif or json;
                             FILE - or none is standard output
  --write-baseline FILE      save this build's diagnostics as a baseline file

Files are written only when the run succeeds, each replaced whole.
Text output is coloured on a terminal unless NO_COLOR is set.

Exit codes:
  0  the gate passed
  1  the gate failed
  2  bad usage or unreadable input
)");
}

int CheckCommand::run(const QStringList& arguments, Streams streams)
{
    const auto fail = [&](const QString& message) {
        streams.errors.write((QStringLiteral("corvane-check: ") + message + u'\n').toUtf8());
        return int(badInput);
    };

    std::variant<Options, UsageError> parsed = parseOptions(arguments);
    if (const auto* usage = std::get_if<UsageError>(&parsed))
        return fail(usage->message + QStringLiteral(" (see --help)"));
    Options& options = std::get<Options>(parsed);
    if (options.help) {
        streams.output.write(helpText().toUtf8());
        return passed;
    }
    if (options.version) {
        streams.output.write(QByteArrayLiteral("corvane-check " CORVANE_VERSION "\n"));
        return passed;
    }

    const DiagnosticParser parser;
    std::optional<QList<BuildDiagnostic>> baseline;
    if (options.baselineLog) {
        Result<QList<BuildDiagnostic>> loaded =
            CheckInput::readLogDiagnostics(*options.baselineLog, streams.input, parser);
        if (!loaded)
            return fail(loaded.error().description);
        baseline = std::move(loaded.value());
    }
    // A baseline file is decoded on a thread of its own while the log is
    // read, which leaves a processor idle waiting for gzip.
    std::future<Result<QList<BuildDiagnostic>>> baselineFile;
    if (options.baselineFile || options.historyProject) {
        baselineFile = startBeside([&options] {
            return options.baselineFile ? CheckInput::readBaselineFile(*options.baselineFile)
                                        : CheckInput::readHistoryBaseline(*options.historyProject, options.historyFile);
        });
    }
    Result<QList<BuildDiagnostic>> current = CheckInput::readLogDiagnostics(options.log, streams.input, parser);
    if (baselineFile.valid()) {
        Result<QList<BuildDiagnostic>> loaded = baselineFile.get();
        if (!loaded)
            return fail(loaded.error().description);
        baseline = std::move(loaded.value());
    }
    if (!current)
        return fail(current.error().description);

    if (options.relativeTo) {
        makePathsRelative(current.value(), *options.relativeTo);
        if (baseline)
            makePathsRelative(*baseline, *options.relativeTo);
    }
    CheckReport report = makeCheckReport(current.value(), baseline, options.match);
    report.sourceRoot = options.relativeTo;

    for (Output& output : options.outputs) {
        FormatOptions formatOptions;
        formatOptions.colour = streams.colourOutput && !output.file;
        formatOptions.toolVersion = QStringLiteral(CORVANE_VERSION);
        output.bytes = formatReport(report, *output.format, formatOptions);
    }
    if (options.writeBaseline) {
        QList<BuildDiagnostic> meaningful;
        for (const CheckedDiagnostic& entry : report.entries) {
            if (entry.state != CheckState::fixed)
                meaningful.append(entry.diagnostic);
        }
        options.outputs.push_back({std::nullopt, options.writeBaseline, BaselineFile::encode(meaningful)});
    }

    // Every file is written in full before any replaces its old version, so
    // a failure leaves all of them as they were.
    std::vector<std::unique_ptr<QSaveFile>> files;
    for (const Output& output : options.outputs) {
        if (!output.file)
            continue;
        auto file = std::make_unique<QSaveFile>(*output.file);
        if (!file->open(QIODevice::WriteOnly) || file->write(output.bytes) != output.bytes.size())
            return fail(*output.file + QStringLiteral(": ") + file->errorString());
        files.push_back(std::move(file));
    }
    for (const auto& file : files) {
        if (!file->commit())
            return fail(file->fileName() + QStringLiteral(": ") + file->errorString());
    }
    for (const Output& output : options.outputs) {
        if (!output.file)
            streams.output.write(output.bytes);
    }
    return gateFails(options.gate, report) ? gateFailed : passed;
}

} // namespace corvane
