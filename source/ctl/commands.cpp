#include "ctl/commands.h"

#include <iostream>

#include "ctl/failure.h"
#include "ctl/session.h"
#include "ctl/transaction.h"
#include "common/messageCodes.h"

namespace {

// Keys that one list is asked for: as many as there are entries in the request, which has to fit a message.
constexpr std::size_t mostListed = 180;

Request numberRequest(std::uint32_t code, const std::string& name, std::uint32_t number) {
    return {.code = code, .name = name, .value = numberBytes(number)};
}

ParametersBuilder singleMessage(const Request& request) {
    std::span<const Request> requests(&request, 1);
    return takeMessage(requests);
}

// Prints the values of the next requests, as many as one message takes. The daemon answers all or, when a key
// is not there, none; then they are asked for one by one, and missing names those that it does not have.
void printNext(Session& session, std::span<const Request>& requests, std::string& missing) {
    std::span<const Request> before = requests;
    Answer answer = session.ask(takeMessage(requests));
    std::span<const Request> asked = before.first(before.size() - requests.size());
    if (answer.code == messageCode::readAnswer && answer.entries.size() == asked.size()) {
        for (std::size_t i = 0; i < asked.size(); ++i)
            std::cout << formatValue({asked[i].name, asked[i].pKey}, answer.entries[i]) << '\n';
    } else if (asked.size() == 1) {
        missing += ' ' + asked.front().name;
    } else {
        for (std::size_t i = 0; i < asked.size(); ++i) {
            std::span<const Request> one = asked.subspan(i, 1);
            printNext(session, one, missing);
        }
    }
}

std::uint32_t count(Session& session, const std::string& name, std::uint32_t owner) {
    Answer answer = session.ask(singleMessage(numberRequest(messageCode::ownerQty, name, owner)));
    if (answer.code != messageCode::ownerQtyAnswer || answer.entries.size() != 1)
        throw Failure(Status::refused, name + ": the daemon does not count it");
    return answer.entries.front().valueAsNumber();
}

}  // namespace

void getValues(const std::vector<Key>& keys) {
    std::vector<Request> requests;
    for (const Key& key : keys) {
        requests.push_back(numberRequest(messageCode::read, key.name, key.index));
        requests.back().pKey = key.index;
    }
    Session session;
    std::string missing;
    for (std::span<const Request> rest(requests); !rest.empty();)
        printNext(session, rest, missing);
    if (!missing.empty())
        throw Failure(Status::refused, "not there, or too long to be read:" + missing);
}

void countInstances(const std::string& name, std::uint32_t owner) {
    Session session;
    std::cout << count(session, name, owner) << '\n';
}

void listInstances(const std::string& name, std::uint32_t owner) {
    ParametersBuilder request = singleMessage(numberRequest(messageCode::pKeyList, name, owner));
    for (std::size_t entries = 1; entries < mostListed; ++entries)
        request.add({});
    Session session;
    Answer answer = session.ask(std::move(request));
    if (answer.code != messageCode::pKeyListAnswer)
        throw Failure(Status::refused, name + ": the daemon does not list it");
    for (const Parameter& entry : answer.entries)
        std::cout << entry.valueAsNumber() << '\n';
    if (answer.entries.size() < mostListed)
        return;
    std::uint32_t all = count(session, name, owner);
    if (all > mostListed)
        throw Failure(Status::refused, "the daemon lists no more than the first " +
                                           std::to_string(mostListed) + " of " + std::to_string(all));
}

void applyChanges(std::span<const Request> changes) {
    for (std::uint32_t key : commitChanges(changes))
        std::cout << key << '\n';
}

void shutDown() {
    Session session;
    try {
        session.ask(ParametersBuilder(messageCode::shutdown));
    } catch (const ConnectionClosed&) {
        return;
    }
    throw Failure(Status::refused, "the daemon goes on");
}
