#include "DiagnosticPreferencesPersistence.h"

#include "BinaryPropertyListReader.h"
#include "BinaryPropertyListWriter.h"
#include "PropertyListRecords.h"
#include "StorageDirectory.h"
#include "StorageFile.h"

#include <QFileInfo>

namespace corvane {

namespace {

PropertyListValue encodeKeys(const QSet<DiagnosticPreferenceKey>& keys)
{
    PropertyListValue::Array array;
    array.reserve(size_t(keys.size()));
    for (const DiagnosticPreferenceKey& key : keys)
        array.push_back(PropertyListRecords::encode(key));
    return PropertyListValue(std::move(array));
}

bool decodeKeys(PropertyListRecords& records, const PropertyListValue& value,
                QSet<DiagnosticPreferenceKey>& out)
{
    const PropertyListValue::Array* array = value.array();
    if (!array)
        return false;
    out.clear();
    out.reserve(qsizetype(array->size()));
    for (const PropertyListValue& element : *array) {
        DiagnosticPreferenceKey preference;
        if (!records.decode(element, preference))
            return false;
        out.insert(preference);
    }
    return true;
}

} // namespace

QByteArray DiagnosticPreferencesPersistence::encodeArchive(const DiagnosticPreferencesArchive& archive)
{
    PropertyListValue::Dictionary root;
    root.emplace_back(QStringLiteral("version"), PropertyListValue(archive.version));
    root.emplace_back(QStringLiteral("pinned"), encodeKeys(archive.pinned));
    root.emplace_back(QStringLiteral("ignored"), encodeKeys(archive.ignored));
    return BinaryPropertyListWriter::encode(PropertyListValue(std::move(root)));
}

Result<DiagnosticPreferencesArchive> DiagnosticPreferencesPersistence::decodeArchive(QByteArrayView bytes)
{
    Result<PropertyListValue> decoded = BinaryPropertyListReader::decode(bytes);
    if (!decoded)
        return decoded.error();

    PropertyListRecords records;
    const auto failure = [&records](QString reason = {}) {
        return Error{BinaryPropertyListReader::errorDomain, 0,
                     reason.isEmpty() ? records.failure() : reason};
    };
    const PropertyListValue::Dictionary* entries =
        records.dictionary(decoded.value(), u"preferences archive");
    if (!entries)
        return failure();

    DiagnosticPreferencesArchive archive;
    enum : unsigned { version = 1, pinned = 2, ignored = 4, all = 7 };
    unsigned seen = 0;
    for (const auto& [key, item] : *entries) {
        if (key == u"version") {
            // Any number will do; only its type is checked.
            if (!records.readInteger(item, key, archive.version))
                return failure();
            seen |= version;
        } else if (key == u"pinned" || key == u"ignored") {
            const bool isPinned = key == u"pinned";
            if (!decodeKeys(records, item, isPinned ? archive.pinned : archive.ignored))
                return failure(item.array() ? QString()
                                            : QStringLiteral("\"%1\" is not an array.").arg(key));
            seen |= isPinned ? pinned : ignored;
        }
    }
    if (seen != all) {
        records.missing(!(seen & version) ? u"version" : !(seen & pinned) ? u"pinned" : u"ignored",
                        u"preferences archive");
        return failure();
    }
    return archive;
}

DiagnosticPreferencesPersistence::Preferences DiagnosticPreferencesPersistence::load() const
{
    const Result<QString> folder = storageDirectory();
    if (!folder)
        return {};
    const QString path = folder.value() + u'/' + fileName;
    if (!QFileInfo::exists(path))
        return {};
    const Result<QByteArray> bytes = StorageFile::read(path);
    if (!bytes)
        return {};
    const Result<DiagnosticPreferencesArchive> archive = decodeArchive(bytes.value());
    if (!archive)
        return {};
    return {archive.value().pinned, archive.value().ignored};
}

Result<void> DiagnosticPreferencesPersistence::save(const QSet<DiagnosticPreferenceKey>& pinned,
                                                    const QSet<DiagnosticPreferenceKey>& ignored) const
{
    const QByteArray bytes = encodeArchive({1, pinned, ignored});
    const Result<QString> folder = storageDirectory();
    if (!folder)
        return folder.error();
    return StorageFile::writeAtomically(folder.value() + u'/' + fileName, bytes);
}

} // namespace corvane
