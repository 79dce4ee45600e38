#include "ostrel/plugin.h"

#include <utility>

#include "unit/capture.h"

namespace {

using namespace std::string_literals;

TEST(ValueList, KeepsTypesBytesAndOrder) {
    OstrelValues* list = OstrelValues_Create();
    OstrelValues_Add_Bool(list, "b", 1);
    OstrelValues_Add_Byte(list, "y", 0xAB);
    OstrelValues_Add_Dword(list, "d", 0x01020304);
    OstrelValues_Add_IP(list, "i", "10.0.0.1");
    OstrelValues_Add_MAC(list, "m", nullptr);
    OstrelValues_Add_String(list, "s", "hi");
    EXPECT_EQ(outputOf([&] {
                  OstrelValues_Add_Dword(list, nullptr, 1);
                  OstrelValues_Add_MAC(nullptr, "m", "");
              }),
              "error: invalid arguments\nerror: invalid arguments\n");
    ASSERT_EQ(list->count, 6);
    const std::string bytes[] = {"\1", "\xAB", "\4\3\2\1", "10.0.0.1\0"s, "\0"s, "hi\0"s};
    for (int i = 0; i < list->count; ++i) {
        const OstrelValue& value = *list->values[i];
        EXPECT_EQ(value.name[0], "bydims"[i]);
        EXPECT_EQ(value.type, i + 1);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(value.value), value.size), bytes[i]);
    }
    delete std::exchange(list->values[2], nullptr);  // a hole is no obstacle to the release
    OstrelValues_Destroy(list);
}

}  // namespace
