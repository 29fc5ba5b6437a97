#pragma once

#include "PropertyListValue.h"

#include <QByteArray>
#include <QIODevice>

namespace corvane {

// Writes Apple's binary property-list format, version 1.0.
//
// Each distinct string, integer and boolean is stored once, and object
// references and offsets use the smallest of 1, 2, 4 or 8 bytes.
class BinaryPropertyListWriter {
public:
    static QByteArray encode(const PropertyListValue& root);
    // Streams the encoding to a device; false when the device refused bytes.
    static bool write(const PropertyListValue& root, QIODevice& device);
};

} // namespace corvane
