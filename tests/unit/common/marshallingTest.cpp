// The byte layouts, and the limits at their edges; malformed lists at large are the fuzz targets' business.
#include "common/marshalling.h"

#include <memory>

#include "unit/capture.h"

namespace {

using Bytes = std::vector<unsigned char>;

template <typename Marshaller>
Bytes marshalled(Marshaller marshaller, unsigned int code, unsigned int count, OstrelValue* values) {
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> list(marshaller(code, count, values, &size));
    return {list.get(), list.get() + size};
}

// The records of the list, whose code is skipped.
template <typename Parser>
std::unique_ptr<OstrelValue[]> parsed(Parser parser, Bytes list) {
    OstrelValue* records = nullptr;
    unsigned int count = 0;
    parser(static_cast<unsigned int>(list.size()) - 4, list.data() + 4, &count, &records);
    return std::unique_ptr<OstrelValue[]>(records);
}

TEST(Parameters, Layout) {
    unsigned char dword[] = {1, 2, 3, 4};
    OstrelValue value("n", dword, 4, ostrelTypeDword, 0x11, 0x22);
    value.setTpltName("tt");
    const Bytes expected = {6, 0, 0, 0, 1,    0, 0, 0, 1,    0, 0, 0, 'n', 4, 0, 0, 0,   1,
                            2, 3, 4, 3, 0x11, 0, 0, 0, 0x22, 0, 0, 0, 2,   0, 0, 0, 't', 't'};
    EXPECT_EQ(marshalled(OstrelMarshallParameters, 6, 1, &value), expected);
    ParametersBuilder builder(6);
    builder.add({"n", dword, ostrelTypeDword, 0x11, 0x22, "tt"});
    EXPECT_EQ(Bytes(builder.bytes().begin(), builder.bytes().end()), expected);
    EXPECT_EQ(outputOf([] { EXPECT_TRUE(parseParameters(Bytes(7, 0))); }),
              "\033[41m**** ERROR ****\033[m [OstrelUnMarshallParameters] size not null :3\n"
              "\033[41m**** ERROR ****\033[m [OstrelUnMarshallParameters] Error mismatch end of buffer :3\n");
}

TEST(Parameters, Limits) {
    OstrelValue value;
    value.setName(std::string(127, 'n').c_str());
    Bytes list = marshalled(OstrelMarshallParameters, 99, 1, &value);
    const auto records = parsed(OstrelUnMarshallParameters, list);
    ASSERT_TRUE(records);
    EXPECT_STREQ(records[0].tpltName, "") << "never null";
    list[12] = '\0';
    EXPECT_FALSE(parsed(OstrelUnMarshallParameters, list)) << "a NUL in the name";
    value.setName(std::string(128, 'n').c_str());
    EXPECT_FALSE(parsed(OstrelUnMarshallParameters, marshalled(OstrelMarshallParameters, 99, 1, &value)));
}

TEST(Questions, LayoutAndLog) {
    OstrelValue values[] = {{"a", nullptr, 0, ostrelTypeByte, 0, 0}, {"", nullptr, 0, ostrelTypeNone, 0, 0}};
    const Bytes list = marshalled(OstrelMarshallQuestions, 7, 2, values);
    EXPECT_EQ(list, Bytes({7, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 'a', 0, 0, 0, 0}));
    EXPECT_EQ(outputOf([&] { parsed(OstrelUnMarshallQuestions, list); }),
              "Question [00] <a>\nQuestion [01] <>\n");
}

}  // namespace
