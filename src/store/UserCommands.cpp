#include "UserCommands.h"

#include "DesktopPlatform.h"

#include <QStringList>

namespace corvane {

QString sampleBuildLog()
{
    return QStringList{
        QStringLiteral("/Users/ustra/Developer/ExampleApp/ContentView.swift:48:17: error: cannot find 'widgetTitle' in scope"),
        QStringLiteral("/Users/ustra/Developer/ExampleApp/AudioEngine.swift:112:9: warning: variable 'level' was never "
                       "mutated; consider changing to 'let' constant"),
        QStringLiteral("/Users/ustra/Developer/ExampleApp/Renderer.swift:76:5: warning: result of call to 'drawFrame()' "
                       "is unused"),
        QStringLiteral("/Users/ustra/Developer/ExampleApp/AppState.swift:27:13: note: add an explicit type annotation "
                       "to silence this warning"),
        QStringLiteral("note: Target dependency graph (1 target)"),
    }.join(u'\n');
}

void openInXcode(const BuildDiagnostic& diagnostic, DesktopPlatform& platform)
{
    if (!diagnostic.filePath)
        return;
    QStringList arguments{QStringLiteral("xed")};
    if (diagnostic.line)
        arguments << QStringLiteral("--line") << QString::number(*diagnostic.line);
    arguments << *diagnostic.filePath;
    // Without Xcode (any Linux desktop) the editor the user picked for the
    // file type is the next best thing.
    if (!platform.startDetached(QStringLiteral("/usr/bin/xcrun"), arguments))
        platform.openWithDefaultApplication(*diagnostic.filePath);
}

void copyToPasteboard(const QString& text, DesktopPlatform& platform)
{
    platform.setClipboardText(text);
}

} // namespace corvane
