#include "server/inProcessChecks.h"

#include "common/ostrelUtils.h"
#include "log/serverPlaces.h"

namespace {

// A larger size is taken for a negative or uninitialised one: to copy as many bytes would end the daemon.
constexpr unsigned int largestValue = 1024 * 1024;

bool usable(const OstrelValue* value) {
    return value != nullptr && value->name != nullptr && value->size <= largestValue &&
           (value->size == 0 || value->value != nullptr);
}

}  // namespace

bool validArguments(LogPlace place, std::initializer_list<const void*> pointers) {
    for (const void* pointer : pointers) {
        if (pointer == nullptr) {
            OSTREL_LOG_AT(place, logLevel::debug, "error: invalid arguments");
            return false;
        }
    }
    return true;
}

bool validList(LogPlace place, const OstrelValues& list) {
    bool valid = list.count <= 0 || list.values != nullptr;
    for (int i = 0; valid && i < list.count; ++i)
        valid = usable(list.values[i]);
    if (!valid)
        OSTREL_LOG_AT(place, logLevel::debug, "error: invalid arguments");
    return valid;
}

void logFenced(LogPlace place, const char* what) { OSTREL_LOG_AT(place, logLevel::error, "error: %s", what); }
