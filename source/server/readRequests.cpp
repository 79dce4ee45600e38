#include "server/readRequests.h"

#include <array>
#include <new>
#include <optional>
#include <vector>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"
#include "common/ostrelLink.h"
#include "common/ostrelUtils.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "server/committedValue.h"
#include "server/globals.h"
#include "text/names.h"

namespace {

constexpr unsigned int valueRoom = 4096;

using Entries = std::vector<Parameter>;
// The answer, or nothing when the request is answered with a failure.
using Answer = std::optional<ParametersBuilder>;

// A key's name with the NUL that the database wants.
class KeyName {
public:
    // The parser has checked the length. Told of a bound, the compiler would inline a slower copy.
    explicit KeyName(std::string_view name) { text_[name.copy(text_.data(), name.size())] = '\0'; }
    const char* text() const { return text_.data(); }

private:
    std::array<char, store::longestName + 1> text_;
};

Parameter numberEntry(std::string_view name, const uint32_t& number) {
    return {.name = name,
            .value = {reinterpret_cast<const unsigned char*>(&number), sizeof number},
            .tpltName = {}};
}

// Reads one value into the answer. False, with a line in the log for each thing that the database does not
// give. room is scratch.
bool addValue(ParametersBuilder& answer, const Parameter& entry, std::array<unsigned char, valueRoom>& room) {
    const KeyName name(entry.name);
    const CommittedValue value = readCommitted(name.text(), entry.valueAsNumber(), valueRoom, room.data());
    if (!value.read)
        OSTREL_LOG_AT(logPlace::read, logLevel::error,
                      "[ostrelReply] OstrelClientReadValue call failed for value=<%s>",
                      LogText(name.text()).text());
    if (!value.typed)
        OSTREL_LOG_AT(logPlace::read, logLevel::error,
                      "[ostrelReply] OstrelClientGetType call failed for value=<%s>",
                      LogText(name.text()).text());
    if (!value.read || !value.typed)
        return false;
    answer.add({.name = entry.name, .value = {room.data(), value.size}, .type = value.type, .tpltName = {}});
    return true;
}

Answer answerRead(const Entries& entries) {
    ParametersBuilder answer(messageCode::readAnswer);
    std::array<unsigned char, valueRoom> room;
    bool complete = true;
    for (const Parameter& entry : entries)
        complete = addValue(answer, entry, room) && complete;
    return complete ? Answer(std::move(answer)) : std::nullopt;
}

Answer answerOwnerQty(const Entries& entries) {
    ParametersBuilder answer(messageCode::ownerQtyAnswer);
    for (const Parameter& entry : entries) {
        auto quantity =
            static_cast<uint32_t>(database->getVectorSize(KeyName(entry.name).text(), entry.valueAsNumber()));
        answer.add(numberEntry(entry.name, quantity));
    }
    return answer;
}

Answer answerPKeyList(const Entries& entries) {
    ParametersBuilder answer(messageCode::pKeyListAnswer);
    if (entries.empty())
        return answer;
    const Parameter& first = entries.front();
    std::vector<unsigned int> keys(entries.size());
    int count = static_cast<int>(keys.size());
    const KeyName name(first.name);
    if (database->getInstances(name.text(), first.valueAsNumber(), keys.data(), &count) != 0) {
        OSTREL_LOG_AT(logPlace::pKeyList, logLevel::error,
                      "database->getInstances call failed for value=<%s>", LogText(name.text()).text());
        return std::nullopt;
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i)
        answer.add(numberEntry(entries[i].name, keys[i]));
    return answer;
}

// Parses, lets the handler answer, sends. place: the handler's.
int serve(LogPlace place, Answer (*answerTo)(const Entries&), unsigned int nbBytes, unsigned char* bytes,
          ostrelLink* link) {
    Answer answer;
    try {
        auto entries = parseParameters({bytes, nbBytes});
        if (entries)
            answer = answerTo(*entries);
        else
            OSTREL_LOG_AT(place, logLevel::error, "[OstrelServer::%s] Unmarshall failed", place.function);
        bool failed = !answer;
        if (failed)
            answer.emplace(messageCode::failureAnswer);
        // That it is gone has been logged; each of many requests would say it again.
        if (link->peerGone())
            return 0;
        auto list = answer->bytes();
        if (!link->sendMessage(static_cast<unsigned int>(list.size()), list.data())) {
            OSTREL_LOG_AT(place, logLevel::error, "[ostrelEvent:read] Send message failed");
            failed = true;
        }
        return failed ? 0 : 1;
    } catch (const std::bad_alloc&) {
        OSTREL_LOG_AT(place, logLevel::error, knownLine::readNotAnswered);
        return 0;
    }
}

}  // namespace

int unpackReadMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link) {
    return serve(logPlace::read, answerRead, nbBytes, bytes, link);
}

int unpackGetOwnerQtyMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link) {
    return serve(logPlace::ownerQty, answerOwnerQty, nbBytes, bytes, link);
}

int unpackGetPKeyListMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link) {
    return serve(logPlace::pKeyList, answerPKeyList, nbBytes, bytes, link);
}
