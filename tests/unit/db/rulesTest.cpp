// Which reads and writes are refused, by the operation itself.
#include "testStore.h"

namespace {

class Rules : public testing::Test, protected TestStore {
protected:
    Rules() {
        defaults =
            "flag Bool 1\nbyte Byte 2\nnumber Dword 3\nip IP \"1.2.3.4\"\nmac MAC \"\"\ntext String \"x\"\n"
            "vector[3] Dword 30\nvector[1] Dword 10\ns[1] instance t \"own\"\n";
        templates = "[t]\nm Dword 1\n";
        open();
    }
};

TEST_F(Rules, ValuesFitTheirType) {
    using namespace std::string_literals;
    const auto fits = [this](const char* name, ostrelValueType type, std::vector<std::string> bytes) {
        return std::ranges::count_if(bytes, [&](const std::string& one) { return put(name, 0, one, type); });
    };
    EXPECT_EQ(fits("flag", ostrelTypeBool, {"\xFF", "\0"s}), 2);
    EXPECT_EQ(fits("number", ostrelTypeDword, {"abcd"}), 1);
    EXPECT_EQ(fits("text", ostrelTypeString, {"\0"s, "\n\xFF\0"s}), 2);
    EXPECT_EQ(fits("ip", ostrelTypeIP, {"\0"s, "fe80::1\0"s}), 2);
    EXPECT_EQ(fits("mac", ostrelTypeMAC, {"\0"s, "00:11:22:33:44:55\0"s}), 2);
    EXPECT_EQ(fits("flag", ostrelTypeBool, {"", "ab"}) + fits("flag", ostrelTypeByte, {"a"}), 0);
    EXPECT_EQ(fits("number", ostrelTypeDword, {"", "abc", "abcde"}) + fits("byte", ostrelTypeBool, {"a"}), 0);
    EXPECT_EQ(fits("number", ostrelTypeNone, {"abcd", ""}), 0);
    EXPECT_EQ(fits("number", static_cast<ostrelValueType>(7), {"abcd", "a"}), 0);
    EXPECT_EQ(fits("text", ostrelTypeString, {"", "abc", "a\0c\0"s, "a\0\0"s}), 0);
    EXPECT_EQ(fits("ip", ostrelTypeIP, {"", "1.2.3\0"s, "1.2.3.4"}) + fits("ip", ostrelTypeString, {"1\0"s}),
              0);
    EXPECT_EQ(fits("mac", ostrelTypeMAC, {"00:11:22:33:44:5\0"s, "00:11:22:33:44:55:66\0"s}), 0);
    EXPECT_TRUE(commit()) << "what was not refused can be committed";
    EXPECT_EQ(db->createElement(handle(), "number", -1, nullptr, ostrelTypeDword), -1);
    EXPECT_EQ(db->createElement(handle(), "number", 4, nullptr, ostrelTypeDword), -1);
    EXPECT_EQ(db->createElement(handle(), nullptr, 1, nullptr, ostrelTypeDword), -1);
}

TEST_F(Rules, ReadsNeedTheTypeAndTheRoom) {
    ostrelValueType type = ostrelTypeNone;
    EXPECT_EQ(db->getType("ip", 0, &type), 0);
    EXPECT_EQ(db->getType("ip", 1, &type) + db->getType("nothing", 0, &type), -2);
    EXPECT_EQ(type, ostrelTypeIP);
    unsigned char buffer[16] = "untouched";
    for (const int room : {7, 0, -1}) {
        int size = room;
        EXPECT_EQ(db->dataRead(0, "ip", ostrelTypeIP, &size, buffer, 0), -1);
        EXPECT_EQ(size, room);
    }
    int size = 16;
    EXPECT_EQ(db->dataRead(0, "ip", ostrelTypeString, &size, buffer, 0), -1);
    EXPECT_EQ(db->dataRead(5, "ip", ostrelTypeIP, &size, buffer, 0), -1) << "no such transaction";
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "untouched");
    size = 8;
    EXPECT_EQ(db->dataRead(0, "ip", ostrelTypeIP, &size, buffer, 0), 0);
    EXPECT_EQ(size, 8);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "1.2.3.4");
    unsigned int found[2] = {0, 77};
    int count = 1;
    EXPECT_EQ(db->getInstances("vector", 0, found, &count), 0);
    EXPECT_EQ(std::tie(count, found[0], found[1]), std::make_tuple(1, 1U, 77U));
    EXPECT_EQ(db->getInstances(nullptr, 0, found, &count) + db->getVectorSize(nullptr, 0), -1);
    count = -1;
    EXPECT_EQ(db->getInstances("vector", 0, found, &count), -1);
    EXPECT_EQ(keys("unknown"), Keys{});
}

TEST_F(Rules, UnknownNamesNeedTheOption) {
    EXPECT_FALSE(set("new", 1) || set("new", 1, 1));
    EXPECT_FALSE(set("vector", 1)) << "known as a vector only";
    EXPECT_FALSE(set("number", 1, 1)) << "known as a plain key only";
    EXPECT_TRUE(set("vector", 20, 2)) << "a new index of a known vector";
    EXPECT_FALSE(setText("vector", "x", 4)) << "its type is fixed";
    EXPECT_TRUE(commit());
    mayCreate = true;
    open();
    EXPECT_TRUE(set("new", 1) && set("new", 1, 1) && set("number", 1, 1) && set("vector", 0));
    EXPECT_FALSE(setText("new", "x", 2) || setText("new", "x"));
    for (const std::string& name :
         {std::string(), std::string(128, 'n'), std::string("a\nb"), std::string("\x7F")}) {
        EXPECT_FALSE(set(name, 1)) << name;
        EXPECT_EQ(make("t", name), 0U) << name;
    }
    EXPECT_TRUE(set(std::string(127, 'n'), 1));
    EXPECT_TRUE(commit());
    EXPECT_EQ(keys("vector"), (Keys{1, 2, 3}));
    mayCreate = false;
    open();
    EXPECT_TRUE(set("new", 2) && set("new", 2, 7) && commit()) << "created names are known from then on";
}

TEST_F(Rules, ACreatedKeyThatIsErasedIsUnknownAgainAndMayGetAnotherType) {
    mayCreate = true;
    open();
    EXPECT_TRUE(set("k", 1) && set("k", 2, 2) && set("k", 3, 3) && commit());
    EXPECT_TRUE(erase("k") && setText("k", "text", 2) && !set("k", 1) && commit());
    open();
    EXPECT_EQ(values("k k[2] k[3]"), "none text none");
    EXPECT_TRUE(erase("k"));
    mayCreate = false;
    open();
    EXPECT_EQ(get("k", 2), "text") << "the erasure was not committed";
    EXPECT_TRUE(erase("k") && !setText("k", "x", 2) && commit());
    EXPECT_FALSE(setText("k", "x", 2) || erase("k"));
}

TEST_F(Rules, AnErasedDefaultStaysErasedAndMayBeWrittenAgain) {
    EXPECT_TRUE(erase("number") && erase("vector") && commit());
    for (int restart = 0; restart < 2; ++restart) {
        EXPECT_EQ(values("number vector[1] vector[3]"), "none none none");
        EXPECT_FALSE(erase("number")) << "nothing is left to erase";
        EXPECT_FALSE(setText("number", "x") || setText("vector", "x", 1)) << "its type stays";
        rollback();
        open();
    }
    EXPECT_TRUE(set("number", 9) && set("vector", 9, 9) && commit());
    open();
    EXPECT_EQ(values("number vector[1] vector[9]"), "9 none 9");
}

TEST_F(Rules, ErasureTakesPlainValueAndElementsButNoMembers) {
    mayCreate = true;
    open();
    EXPECT_TRUE(set("vector", 0) && set("s.m", 5) && commit());
    EXPECT_TRUE(erase("vector") && erase("s.m") && commit());
    EXPECT_EQ(values("vector vector[1] s.m s.m[1]"), "none none none 1");
    for (const char* name : {"s.m", "s", "unknown", ""})
        EXPECT_FALSE(erase(name)) << name;
    EXPECT_EQ(db->destroyElement(handle(), nullptr), -1);
}

}  // namespace
