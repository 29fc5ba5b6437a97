#include "TranscriptGenerator.h"

#include <array>
#include <random>
#include <string_view>

namespace corvane::bench {

namespace {

constexpr std::array<std::string_view, 14> modules = {
    "Core",      "Networking", "Persistence", "Rendering", "Settings", "Onboarding", "Payments",
    "Analytics", "Widgets",    "Search",      "Sync",      "Support",  "Übersicht",  "Réglages"};
constexpr std::array<std::string_view, 16> typeNames = {
    "ContentView",    "Renderer",      "SessionStore",   "RequestBuilder", "ImageCache",    "AccountModel",
    "FeedController", "PurchaseFlow",  "TokenRefresher", "LayoutEngine",   "ThemeProvider", "DiffCalculator",
    "ShaderLibrary",  "CrashReporter", "SearchIndex",    "SyncQueue"};
constexpr std::array<std::string_view, 8> sourceExtensions = {"swift", "swift", "swift", "m",
                                                              "h",     "mm",    "cpp",   "metal"};
constexpr std::array<std::string_view, 10> errorMessages = {
    "cannot find 'widgetTitle' in scope",
    "value of type 'SessionStore' has no member 'refresh'",
    "missing return in instance method expected to return 'Bool'",
    "cannot convert value of type 'Int' to expected argument type 'String'",
    "use of unresolved identifier 'layoutMargins'",
    "expected '}' at end of brace statement",
    "call to main actor-isolated instance method 'reload()' in a synchronous nonisolated context",
    "type 'AccountModel' does not conform to protocol 'Decodable'",
    "unknown type name 'NSFoo'",
    "no matching function for call to 'make_shared'"};
// Clang's own wording for C-family sources, where most dense logs come from.
constexpr std::array<std::string_view, 8> clangWarnings = {
    "unused parameter 'sender' [-Wunused-parameter]",
    "implicit conversion loses integer precision: 'long' to 'int' [-Wshorten-64-to-32]",
    "'UIWebView' is deprecated: first deprecated in iOS 12.0 - No longer supported [-Wdeprecated-declarations]",
    "comparison of integers of different signs: 'int' and 'NSUInteger' (aka 'unsigned long') [-Wsign-compare]",
    "incompatible pointer types assigning to 'NSString *' from 'NSNumber *' [-Wincompatible-pointer-types]",
    "null passed to a callee that requires a non-null argument [-Wnonnull]",
    "format specifies type 'int' but the argument has type 'long' [-Wformat]",
    "variable 'größe' set but not used [-Wunused-but-set-variable]"};
constexpr std::array<std::string_view, 5> clangNotes = {
    "previous declaration is here", "'UIWebView' has been explicitly marked deprecated here",
    "passing argument to parameter 'name' here", "use 'NSUInteger' – or cast the value – to silence this warning",
    "in instantiation of function template specialization 'std::make_shared<Renderer>' requested here"};
constexpr std::array<std::string_view, 10> warningMessages = {
    "result of call to 'save()' is unused",
    "variable 'index' was never mutated; consider changing to 'let' constant",
    "'init(frame:)' was deprecated in iOS 16.0: use the configuration initializer",
    "immutable value 'token' was never used; consider replacing with '_' or removing it",
    "will never be executed",
    "implicit conversion loses integer precision: 'NSInteger' to 'int'",
    "unused variable 'count'",
    "capture of 'self' with non-sendable type 'FeedController' in a '@Sendable' closure",
    "string interpolation produces a debug description for an optional value",
    "conditional cast from 'String' to 'String' always succeeds"};
constexpr std::array<std::string_view, 5> noteMessages = {
    "did you mean 'widgetTitles'?", "add an explicit type annotation to silence this warning",
    "protocol requires initializer 'init(from:)' with type 'Decodable'", "'reload()' declared here",
    "remove '!' to use the value"};
constexpr std::array<std::string_view, 8> buildNotes = {
    "note: Planning build",
    "note: Build preparation complete",
    "note: Target dependency graph (4 targets)",
    "note: Constructing build description",
    "note: Building targets in dependency order",
    "note: Using codesigning identity override: -",
    "note: Run script build phase 'SwiftLint' will be run during every build",
    "note: Gather provisioning inputs"};

class Generator {
public:
    Generator(std::size_t bytes, std::uint32_t seed, TranscriptShape shape)
        : m_target(bytes), m_random(seed), m_shape(shape), m_moves(seed * 2654435761u + shape.variant)
    {
        m_out.reserve(bytes + 128 * 1024);
        m_root = "/Users/ustra/Developer/ExampleApp";
        m_derived = "/Users/ustra/Library/Developer/Xcode/DerivedData/ExampleApp-bqzkfgaxmlwhcsdrhbnyoteqjlpv";
    }

    std::string run()
    {
        line("Build description signature: 6f0c1d6bb1a4b5e2f3e8c0f7d6c2a1b9");
        line("Build description path: " + m_derived + "/Build/Intermediates.noindex/XCBuildData/6f0c1d6b.xcbuilddata");
        for (auto note : buildNotes)
            line(std::string(note));
        while (m_out.size() < m_target) {
            const unsigned step = pick(100);
            if (step < 70)
                compileStep();
            else if (step < 80)
                linkStep();
            else if (step < 90)
                scriptStep();
            else
                smallStep();
        }
        line("** BUILD FAILED **");
        line("note: Target dependency graph (4 targets)");
        return std::move(m_out);
    }

private:
    unsigned pick(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(m_random); }
    template <typename Array>
    std::string_view any(const Array& values)
    {
        return values[pick(unsigned(values.size()))];
    }

    void line(std::string_view text)
    {
        m_out += text;
        m_out += '\r';
    }

    std::string sourcePath(std::string_view extension)
    {
        std::string path = m_root;
        path += pick(20) == 0 ? "/Sources/Développement/" : "/Sources/";
        path += any(modules);
        if (pick(3) == 0) {
            path += "/Internal/";
            path += any(modules);
        }
        path += '/';
        path += any(typeNames);
        if (pick(2) == 0)
            path += std::to_string(pick(60));
        path += '.';
        path += extension;
        return path;
    }

    std::string objectPath(std::string_view module)
    {
        return m_derived + "/Build/Intermediates.noindex/ExampleApp.build/Debug-iphonesimulator/" + std::string(module)
            + ".build/Objects-normal/arm64/" + std::string(any(typeNames)) + std::to_string(pick(60)) + ".o";
    }

    // A compiler invocation: most of a real log's bytes are these lines,
    // thousands of absolute paths, none of them followed by ":" and a line.
    void commandLine(std::string_view primary)
    {
        const std::size_t length = 10 * 1024 + pick(90 * 1024);
        std::string text =
            "    /Applications/Xcode.app/Contents/Developer/Toolchains/XcodeDefault.xctoolchain/usr/bin/swift-frontend -frontend -c";
        text.reserve(length + 512);
        while (text.size() < length) {
            switch (pick(12)) {
            case 0:
                text += " -I" + m_derived + "/Build/Products/Debug-iphonesimulator/include";
                break;
            case 1:
                text +=
                    " -F/Applications/Xcode.app/Contents/Developer/Platforms/iPhoneSimulator.platform/Developer/Library/Frameworks";
                break;
            case 2:
                text += " -Xcc -I" + m_root + "/Sources/" + std::string(any(modules)) + "/include";
                break;
            case 3:
                text += " -Xcc -iquote -Xcc " + m_derived
                    + "/Build/Intermediates.noindex/ExampleApp.build/Debug-iphonesimulator/ExampleApp.build/ExampleApp-own-target-headers.hmap";
                break;
            case 4:
                text += " -Xcc -fmodule-map-file=" + sourcePath("modulemap");
                break;
            case 5:
                text += " -Xcc -include -Xcc " + sourcePath("h");
                break;
            case 6:
                text += " -o " + objectPath(any(modules));
                break;
            case 7:
                text += " -module-name " + std::string(any(modules))
                    + " -target arm64-apple-ios16.0-simulator -enable-testing -g -Onone";
                break;
            default:
                text += ' ';
                text += sourcePath(any(sourceExtensions));
                break;
            }
        }
        text += " -primary-file ";
        text += primary;
        line(text);
    }

    unsigned lineNumber()
    {
        unsigned number = 1 + pick(900);
        // Its own random stream, so that moving a diagnostic leaves the rest
        // of the transcript as it was.
        if (m_shape.variant != 0 && m_moves() % 20 == 0)
            number += 1 + m_moves() % 40;
        return number;
    }

    std::string location(std::string_view path, bool column)
    {
        std::string text(path);
        text += ':' + std::to_string(lineNumber());
        if (column)
            text += ':' + std::to_string(1 + pick(120));
        return text;
    }

    void sourceExcerpt()
    {
        line("        let title = model.widgetTitle ?? defaultTitle");
        line("                    ^~~~~~~~~~~~~~~~~");
    }

    // One diagnostic as the compiler prints it; returns how many located
    // lines it wrote.
    unsigned diagnostic(std::string_view path)
    {
        const bool clang = !path.ends_with(".swift");
        if (!clang) {
            const unsigned kind = pick(10);
            std::string text = location(path, pick(5) != 0);
            if (kind < 3)
                text += ": error: " + std::string(any(errorMessages));
            else if (kind < 8)
                text += ": warning: " + std::string(any(warningMessages));
            else
                text += ": note: " + std::string(any(noteMessages));
            line(text);
            sourceExcerpt();
            return 1;
        }
        // Clang names the chain of includes that led to a header.
        if (path.ends_with(".h")) {
            for (unsigned depth = pick(4); depth > 0; --depth)
                line("In file included from " + location(sourcePath(depth == 1 ? "m" : "h"), false) + ":");
        }
        const std::string severity = pick(8) == 0 ? ": error: " : ": warning: ";
        line(location(path, true) + severity
             + std::string(severity == ": error: " ? any(errorMessages) : any(clangWarnings)));
        sourceExcerpt();
        unsigned written = 1;
        if (pick(3) == 0) {
            line(location(sourcePath("h"), true) + ": note: " + std::string(any(clangNotes)));
            sourceExcerpt();
            ++written;
        }
        if (pick(6) == 0) {
            line("1 warning generated.");
        }
        return written;
    }

    void compileStep()
    {
        const std::string primary = sourcePath(any(sourceExtensions));
        const std::size_t stepStart = m_out.size();
        line("");
        line("CompileSwift normal arm64 " + primary + " (in target 'ExampleApp' from project 'ExampleApp')");
        line("    cd " + m_root);
        commandLine(primary);
        if (pick(3) == 0) {
            // A location without a severity, as stack traces and remarks print them.
            line("    in " + primary + ":" + std::to_string(1 + pick(500)) + " (inlined from closure #1)");
        }
        unsigned diagnostics = 0;
        if (m_shape.diagnosticsPerMebibyte < 0) {
            diagnostics = pick(5) < 2 ? 0 : 1 + pick(3);
        } else {
            // The other steps and the diagnostics' own lines take about a
            // sixth of the text, which the compile steps make up for.
            constexpr double compileShare = 0.84;
            const double mean =
                m_shape.diagnosticsPerMebibyte / compileShare * double(m_out.size() - stepStart) / (1024.0 * 1024.0);
            if (mean > 0)
                diagnostics = std::poisson_distribution<unsigned>(mean)(m_random);
        }
        for (unsigned written = 0; written < diagnostics;)
            written += diagnostic(pick(4) == 0 ? sourcePath(any(sourceExtensions)) : primary);
        if (diagnostics > 0 && pick(4) == 0)
            line("error: emit-module command failed with exit code 1 (use -v to see invocation)");
    }

    void linkStep()
    {
        const std::string module(any(modules));
        line("");
        line("Ld " + m_derived + "/Build/Products/Debug-iphonesimulator/" + module + ".framework/" + module
             + " normal (in target '" + module + "' from project 'ExampleApp')");
        line("    cd " + m_root);
        std::string text =
            "    /Applications/Xcode.app/Contents/Developer/Toolchains/XcodeDefault.xctoolchain/usr/bin/clang -Xlinker -reproducible -target arm64-apple-ios16.0-simulator -dynamiclib";
        const std::size_t length = 4 * 1024 + pick(20 * 1024);
        while (text.size() < length)
            text += ' ' + objectPath(module);
        line(text);
        if (pick(6) == 0) {
            line("ld: warning: directory not found for option '-L" + m_root + "/Vendor/lib'");
            line("warning: Could not find or use auto-linked framework 'CoreAudioTypes'");
        }
        if (pick(10) == 0)
            line("error: linker command failed with exit code 1 (use -v to see invocation)");
    }

    void scriptStep()
    {
        line("");
        line(
            "PhaseScriptExecution SwiftLint " + m_derived
            + "/Build/Intermediates.noindex/ExampleApp.build/Debug-iphonesimulator/ExampleApp.build/Script-8F2A1B.sh (in target 'ExampleApp' from project 'ExampleApp')");
        line("    cd " + m_root);
        line("    /bin/sh -c " + m_derived
             + "/Build/Intermediates.noindex/ExampleApp.build/Debug-iphonesimulator/ExampleApp.build/Script-8F2A1B.sh");
        const unsigned findings = m_shape.diagnosticsPerMebibyte < 0 ? pick(4) : 0;
        for (unsigned i = 0; i < findings; ++i) {
            line(sourcePath("swift") + ":" + std::to_string(1 + pick(400)) + ":" + std::to_string(1 + pick(80))
                 + ": warning: Line Length Violation: Line should be 120 characters or less; currently it has "
                 + std::to_string(121 + pick(60)) + " characters (line_length)");
        }
        if (pick(8) == 0)
            line(m_root + "/Scripts/lint.sh:12: error: swiftlint not installed");
    }

    void smallStep()
    {
        line("");
        switch (pick(4)) {
        case 0:
            line(
                "CopySwiftLibs " + m_derived
                + "/Build/Products/Debug-iphonesimulator/ExampleApp.app (in target 'ExampleApp' from project 'ExampleApp')");
            break;
        case 1:
            line("ProcessInfoPlistFile " + m_derived
                 + "/Build/Products/Debug-iphonesimulator/ExampleApp.app/Info.plist " + m_root
                 + "/Resources/Info.plist");
            break;
        case 2:
            line("CompileStoryboard " + m_root
                 + "/Resources/Main.storyboard (in target 'ExampleApp' from project 'ExampleApp')");
            if (pick(3) == 0)
                line(
                    m_root
                    + "/Resources/Main.storyboard:Xyz-Ab-123: warning: Automatically Adjusts Font requires using a Dynamic Type text style");
            break;
        default:
            line(std::string(any(buildNotes)));
            break;
        }
        line("    cd " + m_root);
        line("    builtin-copy -exclude .DS_Store -exclude CVS -exclude .svn -strip-debug-symbols " + sourcePath("png")
             + " " + m_derived + "/Build/Products");
    }

    std::size_t m_target;
    std::mt19937 m_random;
    TranscriptShape m_shape;
    std::mt19937 m_moves;
    std::string m_out;
    std::string m_root;
    std::string m_derived;
};

} // namespace

std::string generateTranscript(std::size_t bytes, std::uint32_t seed, TranscriptShape shape)
{
    return Generator(bytes, seed, shape).run();
}

} // namespace corvane::bench
