// The codes that stand in front of every payload, in both directions.
#pragma once

#include <cstdint>

namespace messageCode {
constexpr uint32_t connect = 1;
constexpr uint32_t notify = 6;
constexpr uint32_t erase = 10;
constexpr uint32_t read = 20;
constexpr uint32_t readAnswer = 21;
constexpr uint32_t startWriting = 29;
constexpr uint32_t commit = 30;
constexpr uint32_t rollback = 31;
constexpr uint32_t instanciate = 40;
constexpr uint32_t instanciateAnswer = 41;
constexpr uint32_t deinstanciate = 42;
constexpr uint32_t deinstanciateOwner = 44;
constexpr uint32_t ownerQty = 46;
constexpr uint32_t ownerQtyAnswer = 47;
constexpr uint32_t pKeyList = 48;
constexpr uint32_t pKeyListAnswer = 49;
constexpr uint32_t shutdown = 100;
constexpr uint32_t failureAnswer = 99;
}  // namespace messageCode

// Largest payload that the server receives.
constexpr size_t receiveBufferSize = 4096;
