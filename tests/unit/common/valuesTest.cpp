#include <cstring>
#include <memory>

#include "ostrel/plugin.h"
#include "unit/capture.h"

namespace {

struct ListDeleter {
    void operator()(OstrelValues* list) const { OstrelValues_Destroy(list); }
};
using List = std::unique_ptr<OstrelValues, ListDeleter>;

std::string bytesOf(const OstrelValue& value) {
    return {reinterpret_cast<const char*>(value.value), value.size};
}

TEST(ValueList, KeepsTypesBytesAndOrder) {
    List list(OstrelValues_Create());
    OstrelValues_Add_Bool(list.get(), "b", 1);
    OstrelValues_Add_Byte(list.get(), "y", 0xAB);
    OstrelValues_Add_Dword(list.get(), "d", 0x01020304);
    OstrelValues_Add_IP(list.get(), "i", "10.0.0.1");
    OstrelValues_Add_MAC(list.get(), "m", nullptr);
    OstrelValues_Add_String(list.get(), "s", "hi");
    ASSERT_EQ(list->count, 6);
    struct Expected {
        const char* name;
        ostrelValueType type;
        std::string bytes;
    } expected[] = {{"b", ostrelTypeBool, "\1"},
                    {"y", ostrelTypeByte, "\xAB"},
                    {"d", ostrelTypeDword, "\4\3\2\1"},
                    {"i", ostrelTypeIP, std::string("10.0.0.1", 9)},
                    {"m", ostrelTypeMAC, std::string(1, '\0')},
                    {"s", ostrelTypeString, std::string("hi", 3)}};
    for (int i = 0; i < list->count; ++i) {
        const OstrelValue& value = *list->values[i];
        EXPECT_STREQ(value.name, expected[i].name);
        EXPECT_EQ(value.type, expected[i].type);
        EXPECT_EQ(bytesOf(value), expected[i].bytes);
        EXPECT_EQ(value.tpltName, nullptr);
        EXPECT_EQ(value.pKey + value.owner + value.deinstanciateKind, 0U);
    }
    // A hole in the list is no obstacle to its release.
    delete list->values[2];
    list->values[2] = nullptr;
}

TEST(ValueList, RefusesNullListAndName) {
    List list(OstrelValues_Create());
    std::string log = outputOf([&] {
        OstrelValues_Add_Dword(list.get(), nullptr, 1);
        OstrelValues_Add_MAC(nullptr, "m", "");
        OstrelValues_Destroy(nullptr);
    });
    EXPECT_EQ(log, "error: invalid arguments\nerror: invalid arguments\n");
    EXPECT_EQ(list->count, 0);
    ostrelShowPrefix(1);
    log = outputOf([&] { OstrelValues_Add_IP(list.get(), nullptr, ""); });
    ostrelShowPrefix(0);
    EXPECT_TRUE(contains(log, ":ostrelValues:")) << log;
    EXPECT_TRUE(contains(log, ":_OstrelValues_Add_StringTyped():")) << log;
}

TEST(Value, SettersCopyAndRelease) {
    OstrelValue value;
    value.setTpltName("t");
    EXPECT_EQ(value.tpltName, nullptr);
    char name[] = "n";
    value.setName(name);
    name[0] = 'x';
    value.setName(value.name);
    EXPECT_STREQ(value.name, "n");
    value.setTpltName("t");
    value.setTpltName("u");
    EXPECT_STREQ(value.tpltName, "u");
    unsigned char bytes[] = {1, 2, 3};
    value.setValue(3, bytes);
    value.setValue(0, bytes);
    EXPECT_EQ(value.value, nullptr);
    EXPECT_EQ(value.size, 0U);
    EXPECT_EQ(OstrelValue("n", bytes, 0, ostrelTypeBool, 1, 2).value, nullptr);
}

}  // namespace
