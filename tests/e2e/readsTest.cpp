// Requests that read, and what they are answered.
#include <gtest/gtest.h>

#include "client.h"
#include "daemon.h"

namespace {

class Reads : public testing::Test {
protected:
    Reads() {
        daemon.factory(
            "net.name String \"box\"\nnet.mtu Dword 1500\n"
            "dns.server[1] IP \"1.1.1.1\"\ndns.server[4] IP \"2.2.2.2\"\n"
            "wifi[1] instance wlan \"web\"\nwifi[2] instance wlan \"web\"\nwifi[3] instance wlan 7\n"
            "wifi.ssid[2] String \"guest\"\nlongest String \"" +
                std::string(4095, 'x') + "\"\ntooLong String \"" + std::string(4096, 'x') + "\"\n",
            "[wlan]\nssid String \"home\"\nchannel Byte 6\n");
        daemon.start();
        client.emplace();
    }
    Reply ask(const std::string& payload) { return client->ask(payload).value_or(Reply{}); }

    Daemon daemon;
    std::optional<Client> client;
    const uint32_t web = ostrelStringToOwner("web");
};

TEST_F(Reads, ValuesComeWithTheirTypesInRequestOrder) {
    // A request entry's other fields do not count, and a short value is the primary key 0.
    const Entry odd{
        .name = "net.mtu", .value = "xy", .type = ostrelTypeMAC, .pKey = 5, .owner = 6, .tpltName = "t"};
    const Reply expected{code::readAnswer,
                         {{"net.name", text("box"), ostrelTypeString},
                          {"wifi.ssid", text("guest"), ostrelTypeString},
                          {"wifi.channel", "\6", ostrelTypeByte},
                          {"dns.server", text("2.2.2.2"), ostrelTypeIP},
                          {"net.mtu", word(1500), ostrelTypeDword}}};
    EXPECT_EQ(ask(list(code::read, {question("net.name"), question("wifi.ssid", 2),
                                    question("wifi.channel", 3), question("dns.server", 4), odd})),
              expected);
}

TEST_F(Reads, OneMissingKeyFailsTheWholeRequest) {
    const Reply failure{code::failureAnswer, {}};
    EXPECT_EQ(ask(list(code::read, {question("net.mtu"), question("net.%s"), question("wifi.ssid", 9)})),
              failure);
    EXPECT_TRUE(daemon.logged("[ostrelReply] OstrelClientReadValue call failed for value=<net.%s>\n"));
    EXPECT_EQ(ask(list(code::read, {question("net.mtu", 1)})), failure) << "a plain value has no elements";
    EXPECT_EQ(ask(list(code::read, {question("longest")})).entries.size(), 1U);
    EXPECT_EQ(ask(list(code::read, {question("tooLong")})), failure);
    EXPECT_EQ(client->number("net.mtu"), 1500U) << "the connection stays";
}

TEST_F(Reads, QuantitiesAndPrimaryKeys) {
    EXPECT_EQ(ask(list(code::ownerQty, {question("wifi", web), question("wifi", 7), question("dns.server"),
                                        question("net.mtu"), question("none")})),
              (Reply{code::ownerQtyAnswer,
                     {{"wifi", word(2)},
                      {"wifi", word(1)},
                      {"dns.server", word(2)},
                      {"net.mtu", word(0)},
                      {"none", word(0)}}}));
    const Entry x = question("x");
    EXPECT_EQ(ask(list(code::pKeyList, {question("wifi", web), x, x})),
              (Reply{code::pKeyListAnswer, {{"wifi", word(1)}, {"x", word(2)}}}));
    EXPECT_EQ(ask(list(code::pKeyList, {question("wifi", web)})),
              (Reply{code::pKeyListAnswer, {{"wifi", word(1)}}}))
        << "room for one";
    EXPECT_EQ(ask(list(code::pKeyList, {question("none")})), (Reply{code::pKeyListAnswer, {}}));
    EXPECT_EQ(ask(list(code::pKeyList)), (Reply{code::pKeyListAnswer, {}}));
}

TEST_F(Reads, BodiesThatDoNotDecodeAreAnsweredWithAFailure) {
    const std::pair<uint32_t, std::string> handlers[] = {{code::read, "unpackReadMessage"},
                                                         {code::ownerQty, "unpackGetOwnerQtyMessage"},
                                                         {code::pKeyList, "unpackGetPKeyListMessage"}};
    for (const auto& [code, name] : handlers) {
        for (const std::string& body : {std::string(), std::string("abc"), word(1), word(0xFFFFFFFF),
                                        word(1) + word(200) + std::string(250, 'n')})
            EXPECT_EQ(ask(word(code) + body), (Reply{code::failureAnswer, {}}));
        EXPECT_TRUE(daemon.logged("[OstrelServer::" + name + "] Unmarshall failed\n"));
    }
    EXPECT_EQ(client->number("net.mtu"), 1500U);
}

}  // namespace
