#pragma once

// The layout of Apple's binary property-list format that the reader and the
// writer share; nothing outside them needs it.

#include <QByteArrayView>
#include <QtGlobal>

namespace corvane::bplist {

// The file's first eight bytes: the format and its version 1.0.
inline constexpr QByteArrayView magic("bplist00");
// The trailer: six unused bytes, offset size, reference size, object count,
// top object and offset-table position, the last three 8 bytes each.
inline constexpr qsizetype trailerSize = 32;

// An object's first byte: the type in the high nibble, and in the low one a
// size code or a count (0xF: the count follows as an integer object).
enum Marker : quint8 {
    markerFalse = 0x08,
    markerTrue = 0x09,
    markerInteger = 0x10,
    markerReal = 0x20,
    markerDate = 0x33,
    markerData = 0x40,
    markerAsciiString = 0x50,
    markerUtf16String = 0x60,
    markerArray = 0xA0,
    markerDictionary = 0xD0,
};

} // namespace corvane::bplist
