#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

#include <utility>
#include <variant>
#include <vector>

namespace corvane {

// One node of a property list: the in-memory form that the binary format is
// read into and written from. Dictionaries keep their entries in order as a
// plain list; the records we store have a handful of keys each, so a linear
// look-up beats a hash table and keeps the order a writer chose.
class PropertyListValue {
public:
    struct Date {
        double secondsSinceReferenceDate = 0.0;
        bool operator==(const Date&) const = default;
    };
    using Array = std::vector<PropertyListValue>;
    using Dictionary = std::vector<std::pair<QString, PropertyListValue>>;

    enum class Type { boolean, integer, real, date, string, data, array, dictionary };

    PropertyListValue() : m_value(false) {}
    PropertyListValue(bool value) : m_value(value) {}
    PropertyListValue(qint64 value) : m_value(value) {}
    PropertyListValue(int value) : m_value(qint64(value)) {}
    PropertyListValue(double value) : m_value(value) {}
    PropertyListValue(Date value) : m_value(value) {}
    PropertyListValue(QString value) : m_value(std::move(value)) {}
    PropertyListValue(QByteArray value) : m_value(std::move(value)) {}
    PropertyListValue(Array value) : m_value(std::move(value)) {}
    PropertyListValue(Dictionary value) : m_value(std::move(value)) {}
    // A string literal would otherwise become a bool.
    PropertyListValue(const char*) = delete;

    Type type() const { return Type(m_value.index()); }

    // Each accessor gives the value when it has that type, else nullptr, so a
    // reader checks the type and takes the value in one step.
    const bool* boolean() const { return std::get_if<bool>(&m_value); }
    const qint64* integer() const { return std::get_if<qint64>(&m_value); }
    const double* real() const { return std::get_if<double>(&m_value); }
    const Date* date() const { return std::get_if<Date>(&m_value); }
    const QString* string() const { return std::get_if<QString>(&m_value); }
    const QByteArray* data() const { return std::get_if<QByteArray>(&m_value); }
    const Array* array() const { return std::get_if<Array>(&m_value); }
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&m_value); }
    Array* array() { return std::get_if<Array>(&m_value); }
    Dictionary* dictionary() { return std::get_if<Dictionary>(&m_value); }

    // The value stored under key in a dictionary; the last entry wins when a
    // key repeats. nullptr when absent or when this is not a dictionary.
    const PropertyListValue* value(QStringView key) const;

    bool operator==(const PropertyListValue& other) const { return m_value == other.m_value; }

private:
    // The order of the alternatives is the order of Type.
    std::variant<bool, qint64, double, Date, QString, QByteArray, Array, Dictionary> m_value;
};

} // namespace corvane
