// Differential target for the diagnostic parser: parse(), which runs the
// regular expressions only where a byte scan finds a candidate, must give
// exactly what the plain left-to-right search of the whole text gives. Any
// difference is printed and aborts the run.
#include "DiagnosticParser.h"
#include "ParserPatterns.h"
#include "ParserCrossCheck.h"
#include "ReadableTextExtractor.h"

#include <QByteArray>
#include <QByteArrayView>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

using namespace corvane;

namespace {

// The reference search backtracks from every "/" to the end of its line, so
// its cost grows with the square of a line's length (about 0.011 MB/s on a
// real 100 KB command line). Above a few KB a single input takes seconds and
// the run finds little; the differences the candidate scan can get wrong all
// fit into short texts. Run with -max_len=4096 too, or libFuzzer wastes its
// mutations on inputs this function throws away.
constexpr std::size_t maxInputBytes = 4096;

// The text as a C string literal, ready to be pasted into a test.
std::string quoted(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (byte >= 32 && byte < 127) {
            out += c;
        } else {
            char escaped[8];
            // Closing and reopening the literal keeps a following hex digit
            // out of the escape.
            std::snprintf(escaped, sizeof escaped, "\\x%02X\"\"", byte);
            out += escaped;
        }
    }
    return out + "\"";
}

const DiagnosticParser& parser()
{
    static const DiagnosticParser instance;
    return instance;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Without its patterns the parser finds nothing in either pass, and every
    // input would agree.
    if (!parser().patterns().location || !parser().patterns().simple) {
        std::fputs("The parser's regular expressions did not compile\n", stderr);
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > maxInputBytes)
        return 0;
    const QByteArrayView bytes(data, qsizetype(size));

    // The parser is only ever given valid UTF-8: an imported log file must
    // decode without error, pasted text arrives as a QString, and the activity
    // log reader keeps only runs that are valid UTF-8. So valid input goes in
    // as it is, and anything else the way the reader would hand the same bytes
    // over. Both are copied to a buffer of their exact size, so that reading
    // past the end is caught.
    const QByteArray extracted = bytes.isValidUtf8() ? QByteArray() : extractReadableText(bytes);
    const QByteArrayView source = bytes.isValidUtf8() ? bytes : QByteArrayView(extracted);
    const auto buffer = std::make_unique<char[]>(std::size_t(source.size()));
    if (!source.isEmpty())
        std::memcpy(buffer.get(), source.data(), std::size_t(source.size()));
    const std::string_view text(buffer.get(), std::size_t(source.size()));

    if (const std::optional<std::string> difference = crossCheckParser(parser(), text)) {
        std::fprintf(stderr, "\nparse() and the full search disagree: %s\ntext (%zu bytes%s): %s\n",
                     difference->c_str(), text.size(),
                     bytes.isValidUtf8() ? "" : ", extracted from invalid UTF-8", quoted(text).c_str());
        std::abort();
    }
    return 0;
}
