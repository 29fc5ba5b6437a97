#pragma once

#include <QString>

#include <optional>

namespace corvane {

// The focused project, kept in the user defaults (on Linux the settings file
// of organization and application "Corvane") under one string key; no key
// means all projects.
class ProjectFocusDefaults {
public:
    static inline const QString key = QStringLiteral("Corvane.FocusedProject");

    static std::optional<QString> load();
    // Stores the name, or removes the key for none.
    static void save(const std::optional<QString>& projectName);
};

} // namespace corvane
