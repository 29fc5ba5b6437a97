#pragma once

#include "Error.h"
#include "PropertyListValue.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QIODevice>
#include <QString>

namespace corvane {

// Reads and writes Apple's binary property-list format ("bplist00").
//
// The reader takes bytes from disk at face value nowhere: every offset, length
// and reference is checked against the file before it is followed or anything
// is allocated for it, so a damaged or hostile file yields an error, never a
// crash or a huge allocation. Types outside what our files can hold (null,
// UIDs, sets, UTF-8 strings) are refused rather than guessed at.
//
// The writer stores each distinct string, integer and boolean once, and uses
// the smallest of 1, 2, 4 or 8 bytes for object references and offsets.
class BinaryPropertyList {
public:
    static inline const QString errorDomain = QStringLiteral("Corvane.PropertyList");

    enum ErrorCode {
        notBinaryPropertyList = 1, // too short or wrong header
        badTrailer,                // sizes or counts in the trailer do not fit the file
        badOffset,                 // an object offset or reference outside its bounds
        badObject,                 // an object whose length or content runs past its bounds
        unsupportedType,           // a kind of object our files never hold
        badDictionaryKey,          // a dictionary key that is not a string
        integerOutOfRange,         // a 128-bit integer beyond 64 signed bits
        cyclicReference,           // a container inside itself
        sharedContainer,           // one container reached twice
        tooDeep,                   // nesting beyond maximumDepth
    };

    // Containers nested deeper than this are refused; our own files nest six
    // levels at most.
    static constexpr int maximumDepth = 256;

    static QByteArray encode(const PropertyListValue& root);
    // Streams the encoding to a device; false when the device refused bytes.
    static bool write(const PropertyListValue& root, QIODevice& device);
    static Result<PropertyListValue> decode(QByteArrayView bytes);
};

} // namespace corvane
