#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvane::bench {

// How many diagnostics a transcript holds, and which build of a series it is.
struct TranscriptShape {
    // Compiler diagnostics per MiB of text, on average, spread over the
    // compile steps in proportion to their size. Negative: the generator's
    // own mix, about twenty per MiB.
    double diagnosticsPerMebibyte = -1;
    // Transcripts with the same seed and different variants are successive
    // builds of the same code: the same steps and diagnostics, except that
    // about one diagnostic in twenty has moved to another line. Variant 0
    // moves none.
    std::uint32_t variant = 0;
};

// A realistic synthetic build transcript of about `bytes` bytes: step
// headers, compiler command lines of 10-100 KB full of absolute paths,
// diagnostics and build-system notes, lines ended by CR as real activity logs
// do. The same seed and shape give the same text.
std::string generateTranscript(std::size_t bytes, std::uint32_t seed = 1, TranscriptShape shape = {});

} // namespace corvane::bench
