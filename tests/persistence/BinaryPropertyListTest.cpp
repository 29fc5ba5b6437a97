#include "BinaryPropertyListReader.h"
#include "BinaryPropertyListWriter.h"
#include "PersistenceTestSupport.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

namespace corvane {
namespace {

using test::bigEndian;
using test::RawPropertyList;
using Dictionary = PropertyListValue::Dictionary;
using Array = PropertyListValue::Array;

PropertyListValue roundTrip(const PropertyListValue& value)
{
    const Result<PropertyListValue> decoded = BinaryPropertyListReader::decode(BinaryPropertyListWriter::encode(value));
    EXPECT_TRUE(decoded.ok()) << (decoded.ok() ? "" : decoded.error().description.toStdString());
    return decoded.ok() ? decoded.value() : PropertyListValue();
}

int decodeError(const QByteArray& bytes)
{
    const Result<PropertyListValue> decoded = BinaryPropertyListReader::decode(bytes);
    return decoded.ok() ? 0 : decoded.error().code;
}

// The trailer's reference size byte.
int referenceSizeOf(const QByteArray& bytes) { return bytes[bytes.size() - 25]; }

TEST(BinaryPropertyList, KeepsEveryScalarExactly)
{
    const std::vector<qint64> integers{0, 1, 14, 15, 255, 256, 65535, 65536, 4294967295LL, 4294967296LL,
                                       -1, -255, std::numeric_limits<qint64>::max(),
                                       std::numeric_limits<qint64>::min()};
    const std::vector<double> reals{0.0, -0.0, 0.1, 1.0 / 3.0, -1e300, 5e-324,
                                    std::numeric_limits<double>::infinity()};
    // Dates beyond 32-bit seconds, before the reference date, and with
    // sub-microsecond fractions.
    const std::vector<double> dates{0.0, 785000000.1234567891, -978307200.5, 4.1e10, -3.2e11, 1e-9};
    for (qint64 i : integers)
        EXPECT_EQ(*roundTrip(PropertyListValue(i)).integer(), i) << i;
    for (double r : reals) {
        const double back = *roundTrip(PropertyListValue(r)).real();
        EXPECT_EQ(std::signbit(back), std::signbit(r));
        EXPECT_EQ(back, r);
    }
    for (double d : dates)
        EXPECT_EQ(roundTrip(PropertyListValue(PropertyListValue::Date{d})).date()->secondsSinceReferenceDate, d);
    EXPECT_TRUE(std::isnan(*roundTrip(PropertyListValue(std::nan(""))).real()));
    EXPECT_EQ(*roundTrip(PropertyListValue(true)).boolean(), true);
    EXPECT_EQ(*roundTrip(PropertyListValue(false)).boolean(), false);
    EXPECT_EQ(*roundTrip(PropertyListValue(QByteArray("\0\1\xff", 3))).data(), QByteArray("\0\1\xff", 3));
}

TEST(BinaryPropertyList, KeepsStringsOfEveryLengthAndForm)
{
    const QList<QString> strings{
        QString(), QStringLiteral("a"), QString(14, u'x'), QString(15, u'x'), QString(300, u'y'),
        QString(70000, u'z'), QStringLiteral("naïve"), QStringLiteral("emoji 😀 and CJK 漢字"),
        QString(20, QChar(0x7F)), QString(1, QChar(0x80)), QString(40000, QChar(0x00E9)),
        // Texts are copied eight characters at a time, then one at a time.
        QStringLiteral("abcdefgh\u00E9"), QStringLiteral("abcdefghijklmno\u0100xyz"),
        QStringLiteral("\uFFFFbcdefghijklmnop")};
    for (const QString& s : strings) {
        const PropertyListValue back = roundTrip(PropertyListValue(s));
        ASSERT_NE(back.string(), nullptr);
        EXPECT_EQ(*back.string(), s) << s.size();
    }
}

TEST(BinaryPropertyList, KeepsContainersInOrderAndEmptyOnes)
{
    Dictionary inner{{QStringLiteral("b"), PropertyListValue(2)}, {QStringLiteral("a"), PropertyListValue(1)}};
    Array array{PropertyListValue(QStringLiteral("same")), PropertyListValue(Dictionary{}), PropertyListValue(Array{}),
                PropertyListValue(QStringLiteral("same")), PropertyListValue(std::move(inner))};
    const PropertyListValue root(Dictionary{{QStringLiteral("list"), PropertyListValue(array)},
                                            {QStringLiteral("flag"), PropertyListValue(true)}});
    EXPECT_EQ(roundTrip(root), root);
    // Dictionary entries keep the writer's order, so "b" stays first.
    EXPECT_EQ(roundTrip(root).value(u"list")->array()->back().dictionary()->front().first, QStringLiteral("b"));
}

TEST(BinaryPropertyList, StoresRepeatedStringsOnceAndPicksSmallSizes)
{
    Array repeated;
    for (int i = 0; i < 1000; ++i)
        repeated.emplace_back(QStringLiteral("the same long text, written a thousand times"));
    const QByteArray bytes = BinaryPropertyListWriter::encode(PropertyListValue(repeated));
    EXPECT_LT(bytes.size(), 2000 + 200);
    EXPECT_EQ(referenceSizeOf(bytes), 1);

    Array distinct;
    for (int i = 0; i < 70000; ++i)
        distinct.emplace_back(qint64(i));
    // Four-byte references; plistlib reads such a file in the interop tests.
    EXPECT_EQ(roundTrip(PropertyListValue(distinct)), PropertyListValue(distinct));

    Array few;
    for (int i = 0; i < 300; ++i)
        few.emplace_back(qint64(i));
    EXPECT_EQ(referenceSizeOf(BinaryPropertyListWriter::encode(PropertyListValue(few))), 2);
}

TEST(BinaryPropertyList, ReadsWhatOtherWritersMayUse)
{
    // A 4-byte real, 16-byte integers, a count in its own integer object,
    // 2-byte references and offsets, and a root that is not object 0.
    RawPropertyList raw;
    raw.referenceSize = 2;
    raw.offsetSize = 2;
    raw.objects = {QByteArray("\x22") + bigEndian(std::bit_cast<quint32>(1.5f), 4),
                   QByteArray("\x14") + bigEndian(0, 8) + bigEndian(42, 8),
                   QByteArray("\x14") + bigEndian(~0ULL, 8) + bigEndian(quint64(-7), 8),
                   QByteArray("\x5F\x10\x03" "abc"),
                   QByteArray("\xA4") + bigEndian(0, 2) + bigEndian(1, 2) + bigEndian(2, 2) + bigEndian(3, 2)};
    raw.top = 4;
    const Result<PropertyListValue> decoded = BinaryPropertyListReader::decode(raw.bytes());
    ASSERT_TRUE(decoded.ok()) << decoded.error().description.toStdString();
    const Array& items = *decoded.value().array();
    EXPECT_EQ(*items[0].real(), 1.5);
    EXPECT_EQ(*items[1].integer(), 42);
    EXPECT_EQ(*items[2].integer(), -7);
    EXPECT_EQ(*items[3].string(), QStringLiteral("abc"));
}

TEST(BinaryPropertyList, RefusesMalformedStructure)
{
    const QByteArray fine = RawPropertyList{{QByteArray("\x09")}}.bytes();
    ASSERT_EQ(decodeError(fine), 0);

    EXPECT_EQ(decodeError({}), BinaryPropertyListReader::notBinaryPropertyList);
    EXPECT_EQ(decodeError(QByteArray("bplist01") + fine.mid(8)), BinaryPropertyListReader::notBinaryPropertyList);
    EXPECT_NE(decodeError(fine.left(fine.size() - 1)), 0);

    const auto withTrailer = [](auto change) {
        RawPropertyList raw{{QByteArray("\x09")}};
        change(raw);
        return decodeError(raw.bytes());
    };
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.objectCount = 0; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.objectCount = 2; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.objectCount = ~0ULL; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.top = 1; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.offsetSize = 0; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.referenceSize = 9; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.tableOffset = 1ULL << 62; }), BinaryPropertyListReader::badTrailer);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.tableOffset = 8; }), BinaryPropertyListReader::badTrailer);
    // Offsets into the header, into the offset table itself, and past the end.
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.offsetOverrides = {0}; }), BinaryPropertyListReader::badOffset);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.offsetOverrides = {9}; }), BinaryPropertyListReader::badOffset);
    EXPECT_EQ(withTrailer([](RawPropertyList& r) { r.offsetOverrides = {200}; }), BinaryPropertyListReader::badOffset);
}

TEST(BinaryPropertyList, RefusesObjectsThatDoNotFit)
{
    const auto error = [](std::vector<QByteArray> objects) {
        return decodeError(RawPropertyList{std::move(objects)}.bytes());
    };
    // Lengths and counts larger than the file, declared in every way.
    EXPECT_EQ(error({QByteArray("\x5E" "abc")}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\x5F\x13") + bigEndian(~0ULL, 8)}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\x6F\x12") + bigEndian(0x7FFFFFFF, 4)}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\x4F\x13") + bigEndian(1ULL << 62, 8)}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\xAF\x13") + bigEndian(1ULL << 61, 8)}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\xDF\x13") + bigEndian(~0ULL / 2, 8)}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\x5F\x20")}), BinaryPropertyListReader::badObject); // a length that is a real
    EXPECT_EQ(error({QByteArray::fromHex("130000")}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray::fromHex("2300")}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray::fromHex("3300")}), BinaryPropertyListReader::badObject);
    EXPECT_EQ(error({QByteArray("\x52" "a\xC3")}), BinaryPropertyListReader::badObject); // not ASCII
    // References past the object count.
    EXPECT_EQ(error({QByteArray("\xA1\x05")}), BinaryPropertyListReader::badOffset);
    EXPECT_EQ(error({QByteArray("\xD1\x01\x07"), QByteArray("\x51k")}), BinaryPropertyListReader::badOffset);
    // Types our files never hold, and a key that is not a string.
    EXPECT_EQ(error({QByteArray("\x00", 1)}), BinaryPropertyListReader::unsupportedType);
    EXPECT_EQ(error({QByteArray("\x80\x01")}), BinaryPropertyListReader::unsupportedType);
    EXPECT_EQ(error({QByteArray::fromHex("c100")}), BinaryPropertyListReader::unsupportedType);
    EXPECT_EQ(error({QByteArray("\x71" "a")}), BinaryPropertyListReader::unsupportedType);
    EXPECT_EQ(error({QByteArray("\xD1\x01\x01"), QByteArray("\x10\x01")}), BinaryPropertyListReader::badDictionaryKey);
    EXPECT_EQ(error({QByteArray("\x14") + bigEndian(1, 8) + bigEndian(0, 8)}), BinaryPropertyListReader::integerOutOfRange);
    EXPECT_EQ(error({QByteArray("\x14") + bigEndian(0, 8) + bigEndian(1ULL << 63, 8)}),
              BinaryPropertyListReader::integerOutOfRange);
}

TEST(BinaryPropertyList, SharesContainersButRefusesCyclesBlowUpsAndDeepNesting)
{
    const auto error = [](std::vector<QByteArray> objects) {
        return decodeError(RawPropertyList{std::move(objects)}.bytes());
    };
    EXPECT_EQ(error({QByteArray::fromHex("a100")}), BinaryPropertyListReader::cyclicReference);
    EXPECT_EQ(error({QByteArray("\xA1\x01"), QByteArray("\xA1\x02"), QByteArray::fromHex("a100")}),
              BinaryPropertyListReader::cyclicReference);
    EXPECT_EQ(error({QByteArray::fromHex("d10100"), QByteArray("\x51k")}), BinaryPropertyListReader::cyclicReference);
    // A diamond is two copies; thirty stacked diamonds would unfold into a
    // billion nodes from a few hundred bytes.
    const Result<PropertyListValue> diamond = BinaryPropertyListReader::decode(
        RawPropertyList{{QByteArray("\xA2\x01\x01"), QByteArray("\xA1\x02"), QByteArray("\x09")}}.bytes());
    ASSERT_TRUE(diamond.ok());
    EXPECT_EQ(diamond.value(), PropertyListValue(Array(2, Array{true})));
    std::vector<QByteArray> stacked;
    for (int i = 0; i < 30; ++i)
        stacked.push_back(QByteArray("\xA2") + char(i + 1) + char(i + 1));
    stacked.push_back(QByteArray("\x09"));
    EXPECT_EQ(error(stacked), BinaryPropertyListReader::unfoldsTooFar);
    // Shared strings and data are fine, and are not copied per reference: a
    // thousand references to one large object stay one object in memory.
    EXPECT_EQ(error({QByteArray("\xA2\x01\x01"), QByteArray("\x51x")}), 0);
    RawPropertyList many;
    many.referenceSize = 2;
    many.offsetSize = 4;
    many.objects = {QByteArray("\x4F\x12") + bigEndian(1 << 20, 4) + QByteArray(1 << 20, 'd'),
                    QByteArray("\xAF\x11") + bigEndian(1000, 2)};
    for (int i = 0; i < 1000; ++i)
        many.objects[1] += bigEndian(0, 2);
    many.top = 1;
    const Result<PropertyListValue> shared = BinaryPropertyListReader::decode(many.bytes());
    ASSERT_TRUE(shared.ok());
    const Array& copies = *shared.value().array();
    ASSERT_EQ(copies.size(), 1000u);
    EXPECT_EQ(copies.front().data()->constData(), copies.back().data()->constData());

    const auto nested = [](int depth) {
        RawPropertyList raw;
        raw.referenceSize = 2;
        raw.offsetSize = 4;
        for (int i = 0; i < depth; ++i)
            raw.objects.push_back(QByteArray("\xA1") + bigEndian(quint64(i + 1), 2));
        raw.objects.push_back(QByteArray("\x09"));
        return decodeError(raw.bytes());
    };
    EXPECT_EQ(nested(BinaryPropertyListReader::maximumDepth), 0);
    EXPECT_EQ(nested(BinaryPropertyListReader::maximumDepth + 1), BinaryPropertyListReader::tooDeep);
    EXPECT_EQ(nested(20000), BinaryPropertyListReader::tooDeep);
}

// Damage of every other kind is the fuzz target's work (fuzz/).
TEST(BinaryPropertyList, RefusesEveryTruncation)
{
    Array sessions;
    for (int i = 0; i < 5; ++i)
        sessions.push_back(PropertyListValue(Dictionary{
            {QStringLiteral("name"), PropertyListValue(QStringLiteral("session ✓ %1").arg(i))},
            {QStringLiteral("when"), PropertyListValue(PropertyListValue::Date{i + 0.5})},
            {QStringLiteral("count"), PropertyListValue(qint64(i) << 40)},
            {QStringLiteral("items"), PropertyListValue(Array{PropertyListValue(true), PropertyListValue(1.25)})}}));
    const QByteArray valid = BinaryPropertyListWriter::encode(PropertyListValue(sessions));

    for (qsizetype length = 0; length < valid.size(); ++length)
        EXPECT_FALSE(BinaryPropertyListReader::decode(valid.left(length)).ok()) << length;
}

} // namespace
} // namespace corvane
