// Feeds arbitrary bytes to the property-list reader and to the two archive
// readers built on it. Beyond not crashing, whatever is read must survive a
// write and a second read unchanged.
#include "BinaryPropertyListReader.h"
#include "BinaryPropertyListWriter.h"
#include "BuildHistoryPersistence.h"
#include "DiagnosticPreferencesPersistence.h"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArrayView bytes(data, qsizetype(size));

    if (const Result<PropertyListValue> value = BinaryPropertyListReader::decode(bytes)) {
        // Compared as bytes: a NaN read from the input never equals itself.
        const QByteArray written = BinaryPropertyListWriter::encode(value.value());
        const Result<PropertyListValue> again = BinaryPropertyListReader::decode(written);
        if (!again || BinaryPropertyListWriter::encode(again.value()) != written)
            std::abort();
    }

    if (const Result<BuildHistoryArchive> archive = BuildHistoryPersistence::decodeArchive(bytes)) {
        const QByteArray written = BuildHistoryPersistence::encodeArchive(archive.value());
        const Result<BuildHistoryArchive> again = BuildHistoryPersistence::decodeArchive(written);
        if (!again || BuildHistoryPersistence::encodeArchive(again.value()) != written)
            std::abort();
    }

    if (const Result<DiagnosticPreferencesArchive> archive =
            DiagnosticPreferencesPersistence::decodeArchive(bytes)) {
        const Result<DiagnosticPreferencesArchive> again = DiagnosticPreferencesPersistence::decodeArchive(
            DiagnosticPreferencesPersistence::encodeArchive(archive.value()));
        if (!again || again.value().pinned != archive.value().pinned
            || again.value().ignored != archive.value().ignored)
            std::abort();
    }
    return 0;
}
