#include "ctl/request.h"

#include <cstring>

#include "ctl/failure.h"
#include "common/messageCodes.h"

namespace {

constexpr std::size_t listHead = 8;
constexpr std::size_t entryHead = 21;

std::size_t sizeOf(const Request& request) {
    return entryHead + request.name.size() + request.value.size() + request.tpltName.size();
}

Parameter borrow(const Request& request) {
    return {.name = request.name,
            .value = {reinterpret_cast<const unsigned char*>(request.value.data()), request.value.size()},
            .type = request.type,
            .pKey = request.pKey,
            .owner = request.owner,
            .tpltName = request.tpltName};
}

}  // namespace

void checkSize(const Request& request) {
    std::size_t size = listHead + sizeOf(request);
    if (size > receiveBufferSize)
        throw Failure(Status::usage, "the value is " + std::to_string(size - receiveBufferSize) +
                                         " bytes too long for one message to the daemon");
}

ParametersBuilder takeMessage(std::span<const Request>& requests) {
    ParametersBuilder message(requests.front().code);
    std::uint32_t code = requests.front().code;
    while (!requests.empty() && requests.front().code == code &&
           message.bytes().size() + sizeOf(requests.front()) <= receiveBufferSize) {
        message.add(borrow(requests.front()));
        requests = requests.subspan(1);
    }
    return message;
}

std::string numberBytes(std::uint32_t number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}
