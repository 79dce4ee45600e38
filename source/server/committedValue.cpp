#include "server/committedValue.h"

#include "db/ostrelDb.h"
#include "server/globals.h"

CommittedValue readCommitted(const char* key, unsigned int pKey, unsigned int room, unsigned char* buffer) {
    constexpr long committed = 0;
    CommittedValue value;
    value.typed = database->getType(key, pKey, &value.type) != refused;
    if (!value.typed)
        return value;
    int size = static_cast<int>(room);
    value.read = database->dataRead(committed, key, value.type, &size, buffer, pKey) != refused;
    value.size = static_cast<unsigned int>(size);
    return value;
}
