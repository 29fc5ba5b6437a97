#pragma once

#include "BuildDiagnostic.h"

#include <QString>

namespace corvane {

class DesktopPlatform;

// The built-in sample log: five lines joined by line feeds.
QString sampleBuildLog();

// Opens the diagnostic's file at its line in Xcode through "/usr/bin/xcrun",
// or with the default application when that cannot be started.
void openInXcode(const BuildDiagnostic& diagnostic, DesktopPlatform& platform);
// Replaces the clipboard's contents with the text.
void copyToPasteboard(const QString& text, DesktopPlatform& platform);

} // namespace corvane
