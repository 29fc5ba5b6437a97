#pragma once

#include "Error.h"

#include <QString>

namespace corvane {

// The application's folder for its files, "Corvane" in the user's data
// location (Application Support on macOS, $XDG_DATA_HOME on Linux), created
// when missing. Something already standing there is used as it is.
//
// The first time the program asks for a folder, the temporary files of saves
// that another run of it could not finish are removed from it (see
// removeInterruptedWrites), so they never pile up however often the program
// is killed while writing.
Result<QString> storageDirectory();

// Removes from folder the temporary files that an atomic write leaves behind
// when the process dies before replacing its target: regular files (not
// links, not folders) with a name only that write makes (see
// StorageFile::temporaryName). Anything else is left alone, so a file the
// user put there is never touched. Returns how many were removed.
int removeInterruptedWrites(const QString& folder);

} // namespace corvane
