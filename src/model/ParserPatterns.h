#pragma once

// Internal to the parser and its tests: the compiled regular expressions.

#include "DiagnosticParser.h"

#include <unicode/regex.h>

#include <memory>

namespace corvane {

struct DiagnosticParser::Patterns {
    // Each is null when its pattern did not compile.
    std::unique_ptr<icu::RegexPattern> location;
    // The located pattern from the "\." of its path on; see ParserSearch.cpp.
    std::unique_ptr<icu::RegexPattern> locationTail;
    std::unique_ptr<icu::RegexPattern> simple;
};

} // namespace corvane
