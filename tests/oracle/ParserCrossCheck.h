#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

class DiagnosticParser;

// Runs the parser's candidate search and its plain full search over one text
// and compares the matches of both passes and the diagnostics built from them
// (ids and timestamps aside), and the diagnostics of the text streamed in
// small pieces to those of the whole. Returns a description of the first difference,
// or nothing when they agree. For tests and fuzzing: the full search is slow
// on long lines.
std::optional<std::string> crossCheckParser(const DiagnosticParser& parser, std::string_view utf8Text);

} // namespace corvane
