#include "CheckCommand.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <unistd.h>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QFile input;
    QFile output;
    QFile errors;
    if (!input.open(stdin, QIODevice::ReadOnly) || !output.open(stdout, QIODevice::WriteOnly)
        || !errors.open(stderr, QIODevice::WriteOnly))
        return corvane::CheckCommand::badInput;
    const bool colour = ::isatty(STDOUT_FILENO) && qEnvironmentVariableIsEmpty("NO_COLOR");
    QStringList arguments = app.arguments();
    arguments.removeFirst();
    return corvane::CheckCommand::run(arguments, {input, output, errors, colour});
}
