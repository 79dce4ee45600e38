#include "goodClient.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr uint32_t places = 16;
constexpr uint32_t roomEvery = 4;

}  // namespace

std::string GoodClient::defaults(unsigned int number) {
    const std::string name = "good" + std::to_string(number);
    std::string lines = name + ".first Dword 0\n" + name + ".last Dword 0\n";
    for (uint32_t place = 1; place <= places; ++place)
        lines += name + ".place[" + std::to_string(place) + "] Dword 0\n";
    return lines;
}

GoodClient::GoodClient(unsigned int number, bool mayEnd)
    : name_("good" + std::to_string(number)),
      owner_(number + 1000),
      mayEnd_(mayEnd),
      thread_([this](const std::stop_token& stop) { run(stop); }) {}

GoodClient::~GoodClient() {
    thread_.request_stop();
    thread_.join();
    EXPECT_GT(committed_, 0U);
}

// The two numbers are the first and the last change of a transaction; of the places each has the last
// transaction that wrote it.
std::vector<Entry> GoodClient::values(uint32_t transaction) const {
    std::vector<Entry> values = {dword(name_ + ".first", transaction), dword(name_ + ".last", transaction)};
    for (uint32_t place = 0; place < places; ++place) {
        const uint32_t age = (transaction - place) % places;
        values.push_back(dword(name_ + ".place", age < transaction ? transaction - age : 0));
    }
    return values;
}

bool GoodClient::found(const Client& client, uint32_t transaction) const {
    std::vector<Entry> keys = {question(name_ + ".first"), question(name_ + ".last")};
    for (uint32_t place = 1; place <= places; ++place)
        keys.push_back(question(name_ + ".place", place));
    return client.ask(list(code::read, keys)) == Reply{code::readAnswer, values(transaction)} &&
           client.ask(list(code::ownerQty, {question("room", owner_)})) ==
               Reply{code::ownerQtyAnswer, {{"room", word(transaction < roomEvery ? 0 : 1)}}};
}

bool GoodClient::commit(const Client& client, uint32_t transaction) const {
    std::vector<std::string> changes = {
        list(code::notify, {dword(name_ + ".first", transaction),
                            dword(name_ + ".place", transaction, transaction % places + 1)})};
    if (transaction % roomEvery == 0) {
        changes.push_back(list(code::deinstanciateOwner, {{.name = "room", .owner = owner_}}));
        changes.push_back(list(code::instanciate, {{.name = "room", .owner = owner_, .tpltName = "room"}}));
    }
    changes.push_back(list(code::notify, {dword(name_ + ".last", transaction)}));
    return client.commit(changes);
}

// A wrong answer fails the test; none at all is the caller's to judge.
bool GoodClient::holds(const Client& client) const {
    if (found(client, committed_))
        return true;
    if (client.ask(list(code::read)))
        ADD_FAILURE() << name_ << " does not find its transaction " << committed_;
    return false;
}

// What a new connection finds: every answered transaction, and perhaps the one whose answer was lost.
bool GoodClient::resume(const Client& client) {
    if (mayEnd_ && found(client, committed_ + 1))
        ++committed_;
    return holds(client);
}

void GoodClient::run(const std::stop_token& stop) {
    while (!stop.stop_requested() && !testing::Test::HasFailure()) {
        const Client client;
        bool alive = resume(client);
        const bool wasAlive = alive;
        while (alive && !stop.stop_requested()) {
            const auto start = std::chrono::steady_clock::now();
            alive = commit(client, committed_ + 1);
            if (alive) {
                ++committed_;
                alive = holds(client);
                slowest_ = std::max(slowest_.load(), std::chrono::steady_clock::now() - start);
            }
        }
        EXPECT_TRUE(alive || mayEnd_) << name_ << " lost its connection after transaction " << committed_;
        if (wasAlive && !alive)
            ++losses_;
        if (!alive)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
