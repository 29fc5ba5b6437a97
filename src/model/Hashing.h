#pragma once

#include <QHashFunctions>

#include <optional>

namespace corvane {

// An absent value hashes differently from every present one, so optionals can
// take part in the field-by-field hashes of the records.
template <typename T>
size_t qHashOptional(const std::optional<T>& value, size_t seed)
{
    using ::qHash;
    return value ? qHash(*value, seed ^ 0x9e3779b97f4a7c15ULL) : seed;
}

} // namespace corvane
