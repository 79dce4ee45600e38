// OstrelValue and the list of values that plug-ins build.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "common/ostrelUtils.h"

constexpr char logModule[] = "ostrelValues";

// Plug-ins reach into it, so it never changes.
static_assert(sizeof(OstrelValue) == 56 && offsetof(OstrelValue, size) == 8 &&
              offsetof(OstrelValue, value) == 16 && offsetof(OstrelValue, type) == 24 &&
              offsetof(OstrelValue, tpltName) == 32 && offsetof(OstrelValue, pKey) == 40 &&
              offsetof(OstrelValue, owner) == 44);

OstrelValue::OstrelValue()
    : name(nullptr),
      size(0),
      value(nullptr),
      type(ostrelTypeNone),
      tpltName(nullptr),
      pKey(0),
      owner(0),
      deinstanciateKind(0) {}

OstrelValue::OstrelValue(const char* name_, unsigned char* value_, unsigned int size_, ostrelValueType type_,
                         unsigned int pKey_, unsigned int owner_)
    : OstrelValue() {
    setName(name_);
    setValue(size_, value_);
    type = type_;
    pKey = pKey_;
    owner = owner_;
}

OstrelValue::~OstrelValue() {
    std::free(name);
    name = nullptr;
    delete[] value;
    value = nullptr;
    std::free(tpltName);
    tpltName = nullptr;
}

namespace {

// Throws std::bad_alloc, as new does.
char* duplicate(const char* text) {
    char* copy = strdup(text);
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

}  // namespace

bool OstrelValue::setName(const char* newName) {
    char* copy = duplicate(newName);
    std::free(name);
    name = copy;
    return true;
}

bool OstrelValue::setValue(unsigned int newSize, unsigned char* bytes) {
    std::unique_ptr<unsigned char[]> copy(newSize > 0 ? new unsigned char[newSize] : nullptr);
    if (copy)
        std::memcpy(copy.get(), bytes, newSize);
    delete[] value;
    value = copy.release();
    size = newSize;
    return true;
}

bool OstrelValue::setTpltName(const char* newTpltName) {
    if (name == nullptr)
        return true;
    char* copy = duplicate(newTpltName);
    std::free(tpltName);
    tpltName = copy;
    return true;
}

bool OstrelValue::setType(ostrelValueType newType) {
    type = newType;
    return true;
}

namespace {

// Plug-ins may have put anything into it.
bool isSound(const OstrelValues* list) {
    return list != nullptr && list->count >= 0 && (list->count == 0 || list->values != nullptr);
}

}  // namespace

OstrelValues* OstrelValues_Create() {
    auto* list = static_cast<OstrelValues*>(std::malloc(sizeof(OstrelValues)));
    if (list != nullptr)
        *list = {nullptr, 0};
    return list;
}

void OstrelValues_Destroy(OstrelValues* list) {
    if (list == nullptr)
        return;
    const int count = isSound(list) ? list->count : 0;
    for (int i = 0; i < count; ++i)
        delete list->values[i];
    std::free(list->values);
    std::free(list);
}

namespace {

// place: of the public function that was called.
void append(LogPlace place, OstrelValues* list, const char* name, const void* bytes, size_t size,
            ostrelValueType type) {
    if (!isSound(list) || name == nullptr) {
        OSTREL_LOG_AT(place, logLevel::debug, "error: invalid arguments");
        return;
    }
    try {
        auto value = std::make_unique<OstrelValue>();
        value->setName(name);
        value->size = static_cast<unsigned int>(size);
        value->value = new unsigned char[size];
        std::memcpy(value->value, bytes, size);
        value->setType(type);

        // One slot per addition: the array's capacity is always its count.
        const size_t slots = static_cast<size_t>(list->count) + 1;
        void* grown = std::realloc(list->values, slots * sizeof(OstrelValue*));
        if (grown == nullptr)
            throw std::bad_alloc();
        list->values = static_cast<OstrelValue**>(grown);
        list->values[list->count++] = value.release();
    } catch (const std::bad_alloc&) {
        OSTREL_LOG_AT(place, logLevel::error, "error: out of memory");
    }
}

}  // namespace

void OstrelValues_Add_Bool(OstrelValues* list, const char* name, unsigned char value) {
    append(OSTREL_HERE, list, name, &value, sizeof value, ostrelTypeBool);
}

void OstrelValues_Add_Byte(OstrelValues* list, const char* name, unsigned char value) {
    append(OSTREL_HERE, list, name, &value, sizeof value, ostrelTypeByte);
}

void OstrelValues_Add_Dword(OstrelValues* list, const char* name, unsigned int value) {
    append(OSTREL_HERE, list, name, &value, sizeof value, ostrelTypeDword);
}

void _OstrelValues_Add_StringTyped(OstrelValues* list, const char* name, const char* text,
                                   ostrelValueType type) {
    const char* bytes = text != nullptr ? text : "";
    append(OSTREL_HERE, list, name, bytes, std::strlen(bytes) + 1, type);
}

void OstrelValues_Add_String(OstrelValues* list, const char* name, const char* text) {
    _OstrelValues_Add_StringTyped(list, name, text, ostrelTypeString);
}

void OstrelValues_Add_IP(OstrelValues* list, const char* name, const char* text) {
    _OstrelValues_Add_StringTyped(list, name, text, ostrelTypeIP);
}

void OstrelValues_Add_MAC(OstrelValues* list, const char* name, const char* text) {
    _OstrelValues_Add_StringTyped(list, name, text, ostrelTypeMAC);
}
