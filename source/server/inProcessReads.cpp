// The reads that the server exports to its plug-ins.
//
// Main thread, inside a plug-in's entry; nothing here takes a lock.
#include <array>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/ostrelUtils.h"
#include "db/ostrelDb.h"
#include "server/committedValue.h"
#include "server/globals.h"
#include "server/inProcessChecks.h"
#include "server/serverModule.h"
#include "text/characters.h"
#include "text/valueTypes.h"

namespace {

constexpr long committed = 0;

int readUntyped(const char* key, unsigned int pKey, unsigned int bufferSize, unsigned int* bytesRead,
                unsigned char* buffer) {
    const CommittedValue value = readCommitted(key, pKey, bufferSize, buffer);
    if (!value.read)
        return 0;
    *bytesRead = value.size;
    return 1;
}

int roomFor(ostrelValueType type, int bufferSize) {
    const store::TypeInfo& info = store::infoOf(type);
    return info.size != 0 ? static_cast<int>(info.size) : bufferSize;
}

// What the twelve typed reads share; bufferSize in bytes.
int OstrelClientReadVectorElement_Typed(const char* key, unsigned int index, ostrelValueType type,
                                        unsigned char* buffer, int bufferSize) {
    if (buffer == nullptr || key == nullptr || bufferSize < 1) {
        OSTREL_LOG_AT(logPlace::readTyped, logLevel::error, "error: invalid arguments [key=%s]",
                      LogText(key).text());
        return 0;
    }
    // A text that cannot be read is empty.
    buffer[0] = 0;
    int room = roomFor(type, bufferSize);
    if (database->dataRead(committed, key, type, &room, buffer, index) == refused) {
        OSTREL_LOG_AT(logPlace::readTyped, logLevel::error, "error: dataRead(%s)", LogText(key).text());
        return 0;
    }
    return 1;
}

int readTyped(const char* key, unsigned int index, ostrelValueType type, unsigned char* buffer,
              unsigned int bufferSize) {
    return fenced(logPlace::readTyped, 0, [=] {
        return OstrelClientReadVectorElement_Typed(key, index, type, buffer, static_cast<int>(bufferSize));
    });
}

// A value's bytes as text: printable as they are, the others as a backslash and two hexadecimal digits. It
// ends with the byte whose output brings it to enough characters.
class Rendering {
public:
    Rendering(const unsigned char* bytes, unsigned int size) {
        for (unsigned int i = 0; i < size && length_ < enough; ++i)
            add(bytes[i]);
        text_[length_] = '\0';
    }
    const char* text() const { return text_.data(); }

private:
    static constexpr size_t longest = 255;
    static constexpr size_t enough = 253;

    void add(unsigned char byte) {
        if (byte == '\\') {
            put('\\');
            put('\\');
        } else if (byte == '\t' || byte == '\n' || byte == '\r' || (byte >= 32 && byte <= 126)) {
            put(static_cast<char>(byte));
        } else {
            put('\\');
            put(store::hexDigits[byte >> 4]);
            put(store::hexDigits[byte & 15]);
        }
    }
    void put(char character) { text_[length_++] = character; }

    std::array<char, longest + 1> text_{};
    size_t length_ = 0;
};

}  // namespace

int OstrelClientGetVectorSize(const char* key, unsigned int owner, unsigned int* result) {
    if (!validArguments(OSTREL_HERE, {key, result}))
        return 0;
    return fenced(OSTREL_HERE, 0, [=] {
        *result = static_cast<unsigned int>(database->getVectorSize(key, owner));
        return 1;
    });
}

int OstrelClientGetPrimaryKeys(const char* key, unsigned int owner, unsigned int* keys, int* count) {
    if (!validArguments(OSTREL_HERE, {key, keys, count}))
        return 0;
    return fenced(OSTREL_HERE, 0,
                  [=] { return database->getInstances(key, owner, keys, count) != refused ? 1 : 0; });
}

int OstrelClientGetType(const char* key, unsigned int pKey, ostrelValueType* type) {
    if (!validArguments(OSTREL_HERE, {key, type}))
        return 0;
    return fenced(OSTREL_HERE, 0, [=] { return database->getType(key, pKey, type) != refused ? 1 : 0; });
}

int OstrelClientReadValue(const char* key, unsigned int bufferSize, unsigned int* bytesRead,
                          unsigned char* buffer) {
    if (!validArguments(OSTREL_HERE, {key, bytesRead, buffer}))
        return 0;
    return fenced(OSTREL_HERE, 0, [=] { return readUntyped(key, 0, bufferSize, bytesRead, buffer); });
}

int OstrelClientReadValueWithPKey(const char* key, unsigned int bufferSize, unsigned int* bytesRead,
                                  unsigned char* buffer) {
    if (!validArguments(OSTREL_HERE, {key, bytesRead, buffer}))
        return 0;
    return fenced(OSTREL_HERE, 0,
                  [=] { return readUntyped(key, readWord(buffer), bufferSize, bytesRead, buffer); });
}

int OstrelClientReadValue_Bool(const char* key, unsigned char* buffer) {
    return readTyped(key, 0, ostrelTypeBool, buffer, 1);
}

int OstrelClientReadValue_Byte(const char* key, unsigned char* buffer) {
    return readTyped(key, 0, ostrelTypeByte, buffer, 1);
}

int OstrelClientReadValue_Dword(const char* key, unsigned char* buffer) {
    return readTyped(key, 0, ostrelTypeDword, buffer, 4);
}

int OstrelClientReadValue_String(const char* key, unsigned char* buffer, unsigned int size) {
    return readTyped(key, 0, ostrelTypeString, buffer, size);
}

int OstrelClientReadValue_IP(const char* key, unsigned char* buffer, unsigned int size) {
    return readTyped(key, 0, ostrelTypeIP, buffer, size);
}

int OstrelClientReadValue_MAC(const char* key, unsigned char* buffer, unsigned int size) {
    return readTyped(key, 0, ostrelTypeMAC, buffer, size);
}

int OstrelClientReadVectorElement_Bool(const char* key, unsigned int index, unsigned char* buffer) {
    return readTyped(key, index, ostrelTypeBool, buffer, 1);
}

int OstrelClientReadVectorElement_Byte(const char* key, unsigned int index, unsigned char* buffer) {
    return readTyped(key, index, ostrelTypeByte, buffer, 1);
}

int OstrelClientReadVectorElement_Dword(const char* key, unsigned int index, unsigned char* buffer) {
    return readTyped(key, index, ostrelTypeDword, buffer, 4);
}

int OstrelClientReadVectorElement_String(const char* key, unsigned int index, unsigned char* buffer,
                                         unsigned int size) {
    return readTyped(key, index, ostrelTypeString, buffer, size);
}

int OstrelClientReadVectorElement_IP(const char* key, unsigned int index, unsigned char* buffer,
                                     unsigned int size) {
    return readTyped(key, index, ostrelTypeIP, buffer, size);
}

int OstrelClientReadVectorElement_MAC(const char* key, unsigned int index, unsigned char* buffer,
                                      unsigned int size) {
    return readTyped(key, index, ostrelTypeMAC, buffer, size);
}

void OstrelClientDumpValues(OstrelValues* list) {
    if ((logLevel::notice & printMask) == 0)
        return;
    if (!validArguments(OSTREL_HERE, {list}) || !validList(OSTREL_HERE, *list))
        return;
    OSTREL_LOG(logLevel::notice, "*** OstrelClientDumpValues ***");
    OSTREL_LOG(logLevel::notice, "size: %d values", list->count);
    for (int i = 0; i < list->count; ++i) {
        const OstrelValue& value = *list->values[i];
        OSTREL_LOG(logLevel::notice, "  (%d/%d) key %s (type %d) = <%d>[%s]", i + 1, list->count,
                   printable(value.name), static_cast<int>(value.type), static_cast<int>(value.size),
                   Rendering(value.value, value.size).text());
    }
    OSTREL_LOG(logLevel::notice, "*** OstrelClientDumpValues ***");
}
