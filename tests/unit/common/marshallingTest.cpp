#include "common/marshalling.h"

#include <cstring>
#include <memory>

#include "unit/capture.h"

namespace {

using Bytes = std::vector<unsigned char>;

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
    ParametersBuilder builder(6);
    builder.add({"n", dword, ostrelTypeDword, 0x11, 0x22, {}});
    EXPECT_EQ(Bytes(builder.bytes().begin(), builder.bytes().end()), expected);
    EXPECT_EQ(marshalled(99, 0, nullptr), Bytes(4, 0));
}

TEST(Parameters, ExtremeFieldsComeBackAndATruncatedListDoesNotDecode) {
    unsigned char bytes[] = "a\0b";
    OstrelValue values[] = {
        {std::string(127, 'n').c_str(), bytes, 4, static_cast<ostrelValueType>(200), 0xFFFFFFFF, 0x80000001},
        {"", nullptr, 0, ostrelTypeNone, 0, 0}};
    values[0].setTpltName("t");
    Bytes whole = marshalled(40, 2, values);
    const Parsed parsed = parse(OstrelUnMarshallParameters, whole);
    ASSERT_EQ(parsed.count, 2U);
    EXPECT_EQ(marshalled(40, 2, parsed.records.get()), whole);
    EXPECT_STREQ(parsed.records[1].tpltName, "") << "never null";
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Bytes part(whole.begin(), whole.begin() + static_cast<long>(size));
        EXPECT_FALSE(parse(OstrelUnMarshallParameters, part).decoded) << size;
    }
    whole.insert(whole.end(), 3, 0);
    std::string log = outputOf([&] { EXPECT_EQ(parse(OstrelUnMarshallParameters, whole).count, 2U); });
    EXPECT_TRUE(contains(log, "[OstrelUnMarshallParameters] size not null :3\n"));
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

TEST(Questions, NamesOnly) {
    unsigned char bytes[] = {1};
    OstrelValue values[] = {{"a", bytes, 1, ostrelTypeByte, 0, 0}, {"bc", nullptr, 0, ostrelTypeNone, 0, 0}};
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> list(OstrelMarshallQuestions(7, 2, values, &size));
    ASSERT_EQ(size, 8U + 4 * 2 + 3);
    auto parseUpTo = [&](unsigned int end) {
        return parse(OstrelUnMarshallQuestions, {list.get() + 4, list.get() + end});
    };
    EXPECT_EQ(outputOf([&] { EXPECT_EQ(parseUpTo(size).count, 2U); }),
              "Question [00] <a>\nQuestion [01] <bc>\n");
    for (unsigned int end = 4; end < size; ++end)
        EXPECT_FALSE(parseUpTo(end).decoded);
    EXPECT_FALSE(parse(OstrelUnMarshallQuestions, {0, 0, 0, 0x40, 0, 0, 0, 0}).decoded);
}

}  // namespace
