#pragma once

#include <QIODevice>
#include <QStringList>

namespace corvane {

// The corvane-check program: compares a build log with a baseline and gates
// on what is new. Takes its arguments without the program name.
class CheckCommand {
public:
    enum ExitCode { passed = 0, gateFailed = 1, badInput = 2 };

    struct Streams {
        QIODevice& input;
        QIODevice& output;
        QIODevice& errors;
        // Standard output is a terminal and NO_COLOR is not set.
        bool colourOutput = false;
    };

    static QString helpText();
    static int run(const QStringList& arguments, Streams streams);
};

} // namespace corvane
