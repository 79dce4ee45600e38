#include "common/marshalling.h"

#include <cstring>
#include <memory>

#include "unit/capture.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes words(std::initializer_list<std::uint32_t> list) {
    Bytes bytes;
    for (std::uint32_t word : list) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<unsigned char>(word >> shift));
    }
    return bytes;
}

struct Parsed {
    bool decoded = false;
    unsigned int count = 0;
    std::unique_ptr<OstrelValue[]> records;
};

template <typename Parser>
Parsed parse(Parser parser, Bytes bytes) {
    // An exact heap block: a read past its end is seen by the sanitizer.
    auto block = std::make_unique<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block.get());
    Parsed parsed;
    OstrelValue* records = nullptr;
    parsed.decoded = parser(static_cast<unsigned int>(bytes.size()), block.get(), &parsed.count, &records);
    parsed.records.reset(records);
    return parsed;
}

// The list as a receiver's parser gets it, without its code.
Bytes marshalled(unsigned int code, unsigned int count, OstrelValue* values) {
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> list(OstrelMarshallParameters(code, count, values, &size));
    return {list.get() + 4, list.get() + size};
}

TEST(Parameters, LayoutOfOneEntry) {
    unsigned char dword[] = {1, 2, 3, 4};
    OstrelValue value("n", dword, 4, ostrelTypeDword, 0x11, 0x22);
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> list(OstrelMarshallParameters(6, 1, &value, &size));
    const Bytes expected = {6, 0, 0, 0, 1, 0,    0, 0, 1, 0,    0, 0, 'n', 4, 0, 0, 0,
                            1, 2, 3, 4, 3, 0x11, 0, 0, 0, 0x22, 0, 0, 0,   0, 0, 0, 0};
    EXPECT_EQ(Bytes(list.get(), list.get() + size), expected);
    EXPECT_EQ(marshalled(99, 0, nullptr), words({0}));
}

TEST(Parameters, RoundTripKeepsEveryField) {
    OstrelValue values[2];
    unsigned char text[] = "a\0b";
    values[0].setName(std::string(127, 'n').c_str());
    values[0].setValue(4, text);
    values[0].setType(static_cast<ostrelValueType>(200));
    values[0].pKey = 0xFFFFFFFF;
    values[0].owner = 0x80000001;
    values[0].setTpltName("tplt");
    values[1].setName("");
    Parsed parsed = parse(OstrelUnMarshallParameters, marshalled(40, 2, values));
    ASSERT_TRUE(parsed.decoded);
    ASSERT_EQ(parsed.count, 2U);
    EXPECT_STREQ(parsed.records[0].name, values[0].name);
    EXPECT_EQ(std::memcmp(parsed.records[0].value, text, 4), 0);
    EXPECT_EQ(parsed.records[0].type, 200U);
    EXPECT_EQ(parsed.records[0].pKey, 0xFFFFFFFF);
    EXPECT_EQ(parsed.records[0].owner, 0x80000001);
    EXPECT_STREQ(parsed.records[0].tpltName, "tplt");
    EXPECT_EQ(parsed.records[1].value, nullptr);
    ASSERT_NE(parsed.records[1].tpltName, nullptr);
    EXPECT_STREQ(parsed.records[1].tpltName, "");
}

TEST(Parameters, TruncatedAnywhereDoesNotDecode) {
    unsigned char bytes[] = "value";
    OstrelValue values[2];
    for (OstrelValue& value : values) {
        value.setName("key");
        value.setValue(6, bytes);
        value.setTpltName("t");
    }
    Bytes whole = marshalled(6, 2, values);
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(
            parse(OstrelUnMarshallParameters, {whole.begin(), whole.begin() + static_cast<long>(size)})
                .decoded);
    whole.insert(whole.end(), 3, 0);
    std::string log = outputOf([&] { EXPECT_EQ(parse(OstrelUnMarshallParameters, whole).count, 2U); });
    EXPECT_TRUE(contains(log, "[OstrelUnMarshallParameters] size not null :3\n"));
    EXPECT_TRUE(contains(log, "[OstrelUnMarshallParameters] Error mismatch end of buffer :3\n"));
}

TEST(Parameters, HostileLengthsDoNotDecode) {
    OstrelValue value("key", nullptr, 0, ostrelTypeNone, 0, 0);
    value.setTpltName("t");
    const Bytes good = marshalled(6, 1, &value);
    auto withWord = [&](std::size_t at, std::uint32_t word) {
        Bytes bytes = good;
        std::memcpy(bytes.data() + at, &word, sizeof word);
        return bytes;
    };
    // count, name length, value size, template name length
    for (std::size_t at : {std::size_t{0}, std::size_t{4}, std::size_t{11}, good.size() - 5}) {
        for (std::uint32_t word : {0xFFFFFFFFU, 0xFFFFFFFCU, 0x80000000U, 200U, 2U})
            EXPECT_FALSE(parse(OstrelUnMarshallParameters, withWord(at, word)).decoded) << at << ' ' << word;
    }
    Bytes withNul = good;
    withNul[9] = 0;
    EXPECT_FALSE(parse(OstrelUnMarshallParameters, withNul).decoded);
    OstrelValue longName(std::string(128, 'n').c_str(), nullptr, 0, ostrelTypeNone, 0, 0);
    EXPECT_FALSE(parse(OstrelUnMarshallParameters, marshalled(6, 1, &longName)).decoded);
}

TEST(Parameters, BuilderAndMarshallerAgree) {
    unsigned char bytes[] = {9, 8};
    OstrelValue value("k", bytes, 2, ostrelTypeByte, 1, 2);
    ParametersBuilder builder(21);
    Parameter entry{
        .name = "k", .value = bytes, .type = ostrelTypeByte, .pKey = 1, .owner = 2, .tpltName = {}};
    builder.add(entry);
    EXPECT_EQ(Bytes(builder.bytes().begin() + 4, builder.bytes().end()), marshalled(21, 1, &value));
    EXPECT_EQ(entry.valueAsNumber(), 0U) << "shorter than a word";
}

TEST(Questions, NamesOnly) {
    unsigned char bytes[] = {1};
    OstrelValue values[2];
    values[0].setName("a");
    values[0].setValue(1, bytes);
    values[1].setName("bc");
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> list(OstrelMarshallQuestions(7, 2, values, &size));
    ASSERT_EQ(size, 8U + 4 * 2 + 3);
    Parsed parsed;
    std::string log = outputOf([&] {
        parsed = parse(OstrelUnMarshallQuestions, {list.get() + 4, list.get() + size});
    });
    EXPECT_EQ(log, "Question [00] <a>\nQuestion [01] <bc>\n");
    EXPECT_EQ(parsed.count, 2U);
    EXPECT_EQ(parsed.records[0].size, 0U);
    for (unsigned int cut = 0; cut < size - 4; ++cut)
        EXPECT_FALSE(parse(OstrelUnMarshallQuestions, {list.get() + 4, list.get() + 4 + cut}).decoded);
    EXPECT_FALSE(parse(OstrelUnMarshallQuestions, words({0x40000000, 0})).decoded);
}

}  // namespace
