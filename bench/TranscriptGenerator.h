#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvane::bench {

// A realistic synthetic build transcript of about `bytes` bytes: step
// headers, compiler command lines of 10-100 KB full of absolute paths, a few
// thousand diagnostics and build-system notes, lines ended by CR as real
// activity logs do. The same seed gives the same text.
std::string generateTranscript(std::size_t bytes, std::uint32_t seed = 1);

} // namespace corvane::bench
