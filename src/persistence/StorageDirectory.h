#pragma once

#include "Error.h"

#include <QString>
#include <QStringList>

namespace corvane {

// The application's folder for its files, "Corvane" in the user's data
// location (Application Support on macOS, $XDG_DATA_HOME on Linux), created
// when missing. Something already standing there is used as it is.
//
// The first time the program asks for a folder, leftovers of saves that
// another run of it could not finish are removed from it (see
// removeInterruptedWrites), so they never pile up however often the program
// is killed while writing.
Result<QString> storageDirectory();

// The files the program keeps in its folder, by name.
QStringList storedFileNames();

// Removes from folder the temporary files that an atomic write of one of the
// named files leaves behind when the process dies before replacing the file:
// "<name>.XXXXXX", six ASCII letters or digits, a regular file (not a link,
// not a folder) whose bytes are empty or begin like a binary property list,
// as every file the program writes does. Anything else is left alone, so a
// file the user put there is never touched. Returns how many were removed.
int removeInterruptedWrites(const QString& folder, const QStringList& fileNames);

} // namespace corvane
