#pragma once

#include "Error.h"
#include "PropertyListValue.h"

#include <QByteArrayView>
#include <QString>

namespace corvane {

// Reads Apple's binary property-list format.
//
// Nothing read from disk is taken at face value: every offset, length and
// reference is checked against the file before it is followed or anything is
// allocated for it, so a damaged or hostile file yields an error, never a
// crash or a huge allocation. Types outside what our files can hold (null,
// UIDs, sets, UTF-8 strings) are refused rather than guessed at.
//
// A container may be referenced from several places, as other writers do for
// identical objects; each use gets its own copy.
class BinaryPropertyListReader {
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
        unfoldsTooFar,             // shared containers copied beyond maximumReusedObjects
        tooDeep,                   // nesting beyond maximumDepth
    };

    // Containers nested deeper than this are refused; our own files nest six
    // levels at most.
    static constexpr int maximumDepth = 256;
    // How many values the copies of shared containers may hold together. A
    // file that shares its containers only to save space stays far below it.
    static constexpr quint64 maximumReusedObjects = 1 << 20;

    static Result<PropertyListValue> decode(QByteArrayView bytes);
};

} // namespace corvane
