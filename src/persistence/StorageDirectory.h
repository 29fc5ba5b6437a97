#pragma once

#include "Error.h"

#include <QString>

namespace corvane {

// The application's folder for its files, "Corvane" in the user's data
// location (Application Support on macOS, $XDG_DATA_HOME on Linux), created
// when missing. Something already standing there is used as it is.
Result<QString> storageDirectory();

} // namespace corvane
