#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvane::bench {

// How many diagnostics a transcript holds, and which build of a series it is.
struct TranscriptShape {
    // Located compiler diagnostic lines (notes included) per MiB of text, on
    // average, spread over the compile steps in proportion to their size.
    // The default, about 600 per MB, is what a real build with many warnings
    // prints. Negative: the generator's old sparse mix, about twenty per MiB.
    double diagnosticsPerMebibyte = 630;
    // Transcripts with the same seed and different variants are successive
    // builds of the same code: the same steps and diagnostics, except that
    // about one diagnostic in twenty has moved to another line. Variant 0
    // moves none.
    std::uint32_t variant = 0;
};

// A realistic synthetic build transcript of about `bytes` bytes: step
// headers, compiler command lines of 10-100 KB full of absolute paths,
// clang-style diagnostics with notes and "In file included from" chains,
// some non-ASCII paths and messages, and build-system notes, lines ended by
// CR as real activity logs do. The same seed and shape give the same text.
std::string generateTranscript(std::size_t bytes, std::uint32_t seed = 1, TranscriptShape shape = {});

} // namespace corvane::bench
