#include "server/readRequests.h"

#include <new>
#include <optional>
#include <span>
#include <utility>
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

namespace {

constexpr unsigned int valueRoom = 4096;

// The answer, or nothing when the request is answered with a failure.
using Answer = std::optional<ParametersBuilder>;

// The entries, and the bytes that hold them.
struct Request {
    std::vector<Parameter> entries;
    std::span<unsigned char> bytes;

    // Ended by a NUL, as the database wants it.
    const char* nameOf(const Parameter& entry) const { return endName(entry, bytes); }
};

Parameter numberEntry(std::string_view name, const uint32_t& number) {
    return {.name = name,
            .value = {reinterpret_cast<const unsigned char*>(&number), sizeof number},
            .tpltName = {}};
}

// Reads one value into the answer. False, with a line in the log for each thing that the database does not
// give.
bool addValue(ParametersBuilder& answer, const Request& request, const Parameter& entry) {
    const char* name = request.nameOf(entry);
    const CommittedValue value =
        readCommitted(name, entry.valueAsNumber(), valueRoom, answer.beginValue(entry.name, valueRoom));
    if (!value.read)
        OSTREL_LOG_AT(logPlace::read, logLevel::error,
                      "[ostrelReply] OstrelClientReadValue call failed for value=<%s>", LogText(name).text());
    if (!value.typed)
        OSTREL_LOG_AT(logPlace::read, logLevel::error,
                      "[ostrelReply] OstrelClientGetType call failed for value=<%s>", LogText(name).text());
    if (!value.read || !value.typed)
        return false;
    answer.endValue(value.size, value.type);
    return true;
}

Answer answerRead(const Request& request) {
    ParametersBuilder answer(messageCode::readAnswer);
    bool complete = true;
    for (const Parameter& entry : request.entries)
        complete = addValue(answer, request, entry) && complete;
    return complete ? Answer(std::move(answer)) : std::nullopt;
}

Answer answerOwnerQty(const Request& request) {
    ParametersBuilder answer(messageCode::ownerQtyAnswer);
    for (const Parameter& entry : request.entries) {
        auto quantity =
            static_cast<uint32_t>(database->getVectorSize(request.nameOf(entry), entry.valueAsNumber()));
        answer.add(numberEntry(entry.name, quantity));
    }
    return answer;
}

Answer answerPKeyList(const Request& request) {
    const std::vector<Parameter>& entries = request.entries;
    ParametersBuilder answer(messageCode::pKeyListAnswer);
    if (entries.empty())
        return answer;
    std::vector<unsigned int> keys(entries.size());
    int count = static_cast<int>(keys.size());
    const char* name = request.nameOf(entries.front());
    if (database->getInstances(name, entries.front().valueAsNumber(), keys.data(), &count) != 0) {
        OSTREL_LOG_AT(logPlace::pKeyList, logLevel::error,
                      "database->getInstances call failed for value=<%s>", LogText(name).text());
        return std::nullopt;
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i)
        answer.add(numberEntry(entries[i].name, keys[i]));
    return answer;
}

// Parses, lets the handler answer, sends. place: the handler's.
int serve(LogPlace place, Answer (*answerTo)(const Request&), unsigned int nbBytes, unsigned char* bytes,
          ostrelLink* link) {
    Answer answer;
    try {
        auto entries = parseParameters({bytes, nbBytes});
        if (entries)
            answer = answerTo({*std::move(entries), {bytes, nbBytes}});
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
