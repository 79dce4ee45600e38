// Write sequences: what they apply, undo, refuse and answer.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include "client.h"
#include "daemon.h"
#include "text.h"

namespace {

class Sequence : public testing::Test {
protected:
    Sequence() {
        daemon.factory("a Dword 1\nb Dword 2\nc Dword 3\ntext String \"old\"\nv[1] Dword 10\n",
                       "[wlan]\nssid String \"home\"\nchannel Dword 6\n");
        daemon.script("p", "watch *\ntriggerOn *\n");
        daemon.start();
        daemon.calls();
        client.emplace();
    }
    // Starts a sequence with these messages.
    static void begin(const Client& client, const std::vector<std::string>& messages) {
        client.send(list(code::startWriting));
        for (const std::string& message : messages)
            client.send(message);
    }
    std::optional<uint32_t> number(const std::string& key, uint32_t pKey = 0) {
        return Client().number(key, pKey);
    }

    Daemon daemon;
    std::optional<Client> client;
    const uint32_t web = ostrelStringToOwner("web");
};

TEST_F(Sequence, CommitAppliesAllAndTellsThePlugin) {
    EXPECT_TRUE(client->commit({list(code::notify, {dword("a", 11), dword("v", 12, 1), dword("v", 13, 7)}),
                                list(code::erase, {{"b"}})}));
    EXPECT_EQ(number("a"), 11U);
    EXPECT_EQ(number("v", 1), 12U);
    EXPECT_EQ(number("v", 7), 13U);
    EXPECT_EQ(number("b"), std::nullopt);
    EXPECT_EQ(daemon.calls(), "p writeConf,p restart,p trigger a,p trigger v,p trigger v,p trigger b,");
    EXPECT_TRUE(daemon.logged("[Notify 1] v -> 4 :\n"));
    EXPECT_TRUE(client->commit({}));
    EXPECT_EQ(daemon.calls(), "") << "an empty commit touches no key";
}

TEST_F(Sequence, RollbackRestartAndDepartureUndo) {
    begin(*client, {list(code::notify, {dword("a", 11)}), list(code::rollback)});
    EXPECT_EQ(client->number("a"), 1U) << "the connection stays";
    EXPECT_TRUE(client->commit({list(code::notify, {dword("a", 11)}), list(code::startWriting),
                                list(code::notify, {dword("b", 22)})}));
    EXPECT_EQ(number("a"), 1U);
    EXPECT_EQ(number("b"), 22U);
    EXPECT_EQ(daemon.calls(), "p writeConf,p restart,p trigger b,") << "not of what was given up";
    EXPECT_TRUE(daemon.logged("[ostrServer] Got startWritting message (AGAIN)\n"));
    client->sayName("leaving");
    begin(*client, {list(code::notify, {dword("a", 11)})});
    client.reset();
    EXPECT_TRUE(daemon.logged(
        "[ostrServer::HandleWriteSequence] Received Message error or closed socket,  from client leaving\n"));
    EXPECT_EQ(number("a"), 1U);
}

TEST_F(Sequence, RefusedChangeUndoesTheSequenceAndClosesTheConnection) {
    const std::pair<std::string, const char*> cases[] = {
        {list(code::notify, {dword("b", 9), dword("none", 9)}), "[Ostrel] DataWrite failed for <none>!\n"},
        {list(code::notify, {dword("none", 9, 3)}), "[Ostrel] DataReWrite failed for <none>!\n"},
        {list(code::notify, {{.name = "b", .value = "x", .type = ostrelTypeByte}}),
         "[Ostrel] DataWrite failed for <b>!\n"},
        {list(code::erase, {{"none"}}), "[Ostrel] Erase element failed for <none>!\n"},
        {list(code::instanciate, {{.name = "wifi", .tpltName = "none"}}),
         "[Ostrel] Instanciate failed for <none/wifi>!\n"},
        {list(code::deinstanciate, {{.name = "wifi", .pKey = 10}}),
         "[Ostrel] Deinstanciate failed for <wifi _ A>!\n"},
        {list(code::notify).substr(0, 6), "[OstrelServer::unpackNotify] Unmarshall failed\n"},
        {list(code::erase).substr(0, 7), "[OstrelServer::unpackErase] Unmarshall failed\n"},
        {list(code::deinstanciate).substr(0, 4), "unpackDeinstanciateMessage():"},
        {list(code::deinstanciateOwner).substr(0, 4), "unpackDeinstanciateOwnerMessage():"},
        {list(code::read), "[OstrelServer] Got unhandled message :20\n"},
        {"abc", "[ostrServer::HandleWriteSequence] Message without a code (size 3)\n"},
        {std::string(4097, 'x'), "[receive] Buffer too small 4097 vs 4096\n"},
    };
    for (const auto& [message, line] : cases) {
        const Client bad;
        begin(bad, {list(code::notify, {dword("a", 11)}), message});
        EXPECT_TRUE(bad.closed()) << line;
        EXPECT_TRUE(daemon.logged(line)) << line;
        EXPECT_EQ(number("a"), 1U) << line;
    }
    EXPECT_EQ(daemon.calls(), "");
    EXPECT_EQ(occurrences(daemon.log(), "[OstrelServer::unpackDeinstanciate] Unmarshall failed\n"), 2U);
    EXPECT_TRUE(client->set("a", 3)) << "others are not affected";
}

TEST_F(Sequence, InstancesLiveAndDieWithTheSequence) {
    const Entry instance{.name = "wifi", .owner = web, .tpltName = "wlan"};
    client->send(list(code::startWriting));
    EXPECT_EQ(client->ask(list(code::instanciate, {instance, instance})),
              (Reply{code::instanciateAnswer, {{"wifi", word(1)}, {"wifi", word(2)}}}));
    client->send(list(code::notify, {dword("wifi.channel", 11, 2)}));
    EXPECT_EQ(client->ask(list(code::instanciate)), (Reply{code::instanciateAnswer, {}}));
    client->send(list(code::commit));
    EXPECT_EQ(client->number("wifi.channel", 1), 6U);
    EXPECT_EQ(client->number("wifi.channel", 2), 11U);

    const Client other;
    other.send(list(code::startWriting));
    EXPECT_EQ(other.ask(list(code::instanciate, {instance})),
              (Reply{code::instanciateAnswer, {{"wifi", word(3)}}}));
    other.send(list(code::rollback));
    EXPECT_EQ(other.number("wifi.channel", 3), std::nullopt) << "rolled back with its sequence";
    other.send(list(code::startWriting));
    EXPECT_EQ(other.ask(list(code::instanciate).substr(0, 5)), (Reply{code::failureAnswer, {}}));
    EXPECT_TRUE(other.closed());

    EXPECT_TRUE(client->commit({list(code::deinstanciate, {{.name = "wifi", .pKey = 1}})}));
    EXPECT_TRUE(client->commit({list(code::deinstanciateOwner, {{.name = "wifi", .owner = web}})}));
    EXPECT_EQ(client->count("wifi", web), 0U);
    client->send(list(code::startWriting));
    EXPECT_EQ(client->ask(list(code::instanciate, {instance})),
              (Reply{code::instanciateAnswer, {{"wifi", word(3)}}}))
        << "numbers are not used again";
}

TEST_F(Sequence, SilentClientOutlivesHangUpButNotAQuitSignal) {
    begin(*client, {list(code::notify, {dword("a", 11)})});
    ASSERT_TRUE(daemon.logged("[ostrServer] Got notify message END\n"));
    daemon.signal(SIGHUP);
    client->send(list(code::notify, {dword("b", 12)}));
    client->send(list(code::commit));
    EXPECT_EQ(client->number("b"), 12U);
    EXPECT_EQ(client->number("a"), 11U);

    begin(*client, {list(code::notify, {dword("a", 33)})});
    ASSERT_TRUE(daemon.logged("[Notify 0] a -> 4 :\n"));
    daemon.signal(SIGQUIT);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_TRUE(contains(daemon.log(), "Received Message error or closed socket,  from client (null)\n"));
    daemon.start();
    EXPECT_EQ(number("a"), 11U);
}

// The daemon is stopped while the clients send and leave, so that it finds each gone at the first answer.
TEST_F(Sequence, IsServedBehindAnAnswerThatFindsNobody) {
    const std::string read = frame(list(code::read, {question("text")}));
    const std::string make =
        frame(list(code::instanciate, {{.name = "wifi", .owner = web, .tpltName = "wlan"}}));
    const auto write = [](const std::string& key, uint32_t number) {
        return frame(list(code::startWriting)) + frame(list(code::notify, {dword(key, number)})) +
               frame(list(code::commit));
    };
    client->number("a");
    daemon.signal(SIGSTOP);
    client->sendRaw(read + read + frame(list(code::ownerQty)) + write("a", 11) + read + write("c", 12));
    client.emplace();
    client->sendRaw(read + write("b", 22) + frame(list(code::startWriting)) + make +
                    frame(list(code::commit)));
    client.reset();
    const Client deaf;  // closes its receiving half only
    deaf.sendRaw(read + write("b", 23));
    shutdown(deaf.fd(), SHUT_RD);
    daemon.signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return number("c") == 12U && number("b") == 23U; }));
    EXPECT_EQ(number("a"), 11U);
    EXPECT_EQ(Client().count("wifi", web), 0U) << "inside a sequence an answer that cannot be sent undoes it";
    EXPECT_EQ(occurrences(daemon.log(), "[ostrelEvent:read] Send message failed\n"), 3U);
    EXPECT_EQ(occurrences(daemon.log(), "[ostrLink::sendData] SendData Error :%w\n"), 4U);
    deaf.sendRaw(write("b", 24));
    EXPECT_TRUE(eventually([&] { return number("b") == 24U; })) << "the connection stays";
}

// The client takes a part of an answer and leaves.
TEST_F(Sequence, IsServedBehindAnAnswerThatIsTakenInPart) {
    const Entry longText{"text", text(std::string(4000, 'x')), ostrelTypeString};
    ASSERT_TRUE(client->commit({list(code::notify, {longText})}));
    const auto descriptors = daemon.usage().descriptors;
    client->send(list(code::read, std::vector<Entry>(130, question("text"))));
    client->send(list(code::startWriting));
    client->send(list(code::notify, {dword("a", 11)}));
    client->send(list(code::commit));
    char byte = 0;
    ASSERT_EQ(recv(client->fd(), &byte, 1, 0), 1);
    client.reset();
    EXPECT_TRUE(eventually([&] { return number("a") == 11U; }));
    EXPECT_TRUE(eventually([&] { return daemon.usage().descriptors == descriptors - 1; }));
}

}  // namespace
