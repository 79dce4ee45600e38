#include "client/reading.h"

#include <algorithm>
#include <deque>

#include "client/callFailure.h"
#include "client/request.h"

namespace client {
namespace {

// So many requests are under way at a time: the daemon shall not have to wait for us to read its answers.
constexpr size_t window = 4;

Failure nonsense() { return {OSTREL_FAILED, "the daemon's answer makes no sense"}; }

Parameter question(const std::string& name, const std::string& number) {
    return {.name = name, .value = asValue(number), .tpltName = {}};
}

uint32_t numberOf(const Parameter& entry) {
    if (entry.value.size() != sizeof(uint32_t))
        throw nonsense();
    return entry.valueAsNumber();
}

// Reads values by requests of several keys each.
class BatchReader {
public:
    BatchReader(Connection& connection, std::span<const Key> keys, const Deadline& deadline)
        : connection_(connection), keys_(keys), deadline_(deadline), values_(keys.size()) {}

    // perRequest: the most keys in one. Of a request that fails, the numbers of the keys go to failed.
    void read(std::span<const size_t> numbers, size_t perRequest, std::vector<size_t>& failed) {
        std::deque<std::span<const size_t>> pending;
        while (!numbers.empty() || !pending.empty()) {
            while (!numbers.empty() && pending.size() < window) {
                const size_t size = queueNext(numbers, perRequest);
                pending.push_back(numbers.first(size));
                numbers = numbers.subspan(size);
            }
            take(connection_.receive(deadline_), pending.front(), failed);
            pending.pop_front();
        }
    }

    std::vector<std::optional<store::Value>> values() && { return std::move(values_); }

private:
    // Returns how many keys from the front the request takes.
    size_t queueNext(std::span<const size_t> numbers, size_t perRequest) {
        ParametersBuilder message(messageCode::read);
        size_t size = 0;
        for (; size < std::min(numbers.size(), perRequest); ++size) {
            const Key& key = keys_[numbers[size]];
            const std::string index = numberBytes(key.index);
            const Parameter entry = question(key.name, index);
            if (message.bytes().size() + entrySize(entry) > receiveBufferSize)
                break;
            message.add(entry);
        }
        connection_.queue(message.bytes());
        return size;
    }

    void take(const Answer& answer, std::span<const size_t> numbers, std::vector<size_t>& failed) {
        if (answer.code == messageCode::failureAnswer) {
            failed.insert(failed.end(), numbers.begin(), numbers.end());
            return;
        }
        if (answer.code != messageCode::readAnswer || answer.entries.size() != numbers.size())
            throw nonsense();
        for (size_t i = 0; i < numbers.size(); ++i) {
            store::Value& value = values_[numbers[i]].emplace();
            const Parameter& entry = answer.entries[i];
            if (entry.name != keys_[numbers[i]].name ||
                !store::makeValue(entry.type, entry.value, value).ok())
                throw nonsense();
        }
    }

    Connection& connection_;
    std::span<const Key> keys_;
    const Deadline& deadline_;
    std::vector<std::optional<store::Value>> values_;
};

}  // namespace

std::vector<std::optional<store::Value>> readValues(Connection& connection, std::span<const Key> keys,
                                                    const Deadline& deadline) {
    BatchReader reader(connection, keys, deadline);
    std::vector<size_t> all(keys.size());
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = i;
    // One missing key fails its whole request; then each is asked for alone.
    std::vector<size_t> failed;
    std::vector<size_t> missing;
    reader.read(all, all.size(), failed);
    reader.read(failed, 1, missing);
    return std::move(reader).values();
}

uint32_t countInstances(Connection& connection, const std::string& name, uint32_t owner,
                        const Deadline& deadline) {
    ParametersBuilder message(messageCode::ownerQty);
    const std::string number = numberBytes(owner);
    message.add(question(name, number));
    connection.queue(message.bytes());
    Answer answer = connection.receive(deadline);
    if (answer.code != messageCode::ownerQtyAnswer || answer.entries.size() != 1)
        throw nonsense();
    return numberOf(answer.entries.front());
}

List listInstances(Connection& connection, const std::string& name, uint32_t owner,
                   const Deadline& deadline) {
    // The daemon answers with as many keys as the request has entries.
    ParametersBuilder message(messageCode::pKeyList);
    const std::string number = numberBytes(owner);
    message.add(question(name, number));
    size_t room = 1;
    for (; message.bytes().size() + entryHead <= receiveBufferSize; ++room)
        message.add({});
    connection.queue(message.bytes());
    const Answer answer = connection.receive(deadline);
    if (answer.code != messageCode::pKeyListAnswer)
        throw nonsense();
    List list;
    for (const Parameter& entry : answer.entries)
        list.keys.push_back(numberOf(entry));
    list.total = static_cast<uint32_t>(list.keys.size());
    if (list.keys.size() == room)
        list.total = std::max(list.total, countInstances(connection, name, owner, deadline));
    return list;
}

}  // namespace client
