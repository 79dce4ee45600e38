#include "server/inProcess.h"

#include "common/ostrelUtils.h"
#include "server/serverModule.h"

namespace {

// A larger size is taken for a negative or uninitialised one: to copy as many bytes would end the daemon.
constexpr unsigned int largestValue = 1024 * 1024;

bool usable(const OstrelValue* value) {
    return value != nullptr && value->name != nullptr && value->size <= largestValue &&
           (value->size == 0 || value->value != nullptr);
}

}  // namespace

bool validArguments(const char* function, std::initializer_list<const void*> pointers) {
    for (const void* pointer : pointers) {
        if (pointer == nullptr) {
            OSTREL_LOG_AS(function, logLevel::debug, "error: invalid arguments");
            return false;
        }
    }
    return true;
}

bool validList(const char* function, const OstrelValues& list) {
    bool valid = list.count <= 0 || list.values != nullptr;
    for (int i = 0; valid && i < list.count; ++i)
        valid = usable(list.values[i]);
    if (!valid)
        OSTREL_LOG_AS(function, logLevel::debug, "error: invalid arguments");
    return valid;
}

void logFenced(const char* function, const char* what) {
    OSTREL_LOG_AS(function, logLevel::error, "error: %s", what);
}
