#include "DiagnosticPreferencesPersistence.h"

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
    DiagnosticPreferencesArchive archive;
    // Any version will do; only its type is checked.
    const Result<void> read =
        PropertyListRecords::readFile(bytes, [&archive](PropertyListRecords& records, const PropertyListValue& root) {
            return records.readRecord(root, u"preferences archive",
                                      {{u"version", records.required, records.integer(archive.version)},
                                       {u"pinned", records.required, records.list(archive.pinned)},
                                       {u"ignored", records.required, records.list(archive.ignored)}});
        });
    if (!read)
        return read.error();
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
