// Calls of the server's functions with what no plug-in should give them.
#pragma once

#include <algorithm>
#include <iterator>

#include "ostrel/plugin.h"

// The number of calls that were refused: all, when not even the type is one; otherwise all but the last,
// which is the write of a Dword, kept[1].
inline int useOddArguments(ostrelValueType type) {
    const char* key = "kept";
    const char* none = nullptr;
    unsigned char bytes[4] = {44};
    unsigned int number = 0;
    int room = -1;
    OstrelValue good(key, bytes, 4, type, 0, 0);
    OstrelValue nameless;
    OstrelValue empty(key, nullptr, 0, ostrelTypeDword, 0, 0);
    OstrelValue huge(key, bytes, 4, ostrelTypeString, 0, 0);
    OstrelValue negative(key, bytes, 4, ostrelTypeDword, 0, 0);
    empty.size = 4;
    huge.size = 0x7fffffff;
    negative.size = 0xffffffff;
    OstrelValue* halfGood[] = {&good, nullptr};
    OstrelValues withoutArray{nullptr, 1};
    OstrelValues withNull{halfGood, 2};
    const int results[] = {
        OstrelClientWriteValues(nullptr),
        OstrelClientReadValue_Dword(none, bytes),
        OstrelClientReadValue_Dword(key, nullptr),
        OstrelClientReadValue_String(key, bytes, 0),
        OstrelClientReadValue_String(key, bytes, 0xffffffff),
        OstrelClientGetPrimaryKeys(key, 0, &number, &room),
        // From here to the last but one with the line of invalid arguments.
        OstrelClientWriteVectorElements(nullptr, 1),
        OstrelClientWriteVectorElement(nullptr, 1),
        OstrelClientWriteValue(nullptr),
        OstrelClientWriteValue(&nameless),
        OstrelClientWriteValue(&empty),
        OstrelClientWriteValue(&huge),
        OstrelClientWriteValue(&negative),
        OstrelClientWriteValues(&withoutArray),
        OstrelClientWriteValues(&withNull),
        OstrelClientDeinstanciate(none, 1),
        OstrelClientDeinstanciateOwner(none, 1),
        ostrelClientInstanciateStructure(none, "host", 1),
        ostrelClientInstanciateStructure("host", none, 1),
        OstrelClientGetVectorSize(none, 0, &number),
        OstrelClientGetPrimaryKeys(key, 0, nullptr, &room),
        OstrelClientGetType(none, 0, nullptr),
        OstrelClientReadValue(key, 4, nullptr, bytes),
        OstrelClientReadValueWithPKey(key, 4, &number, nullptr),
        OstrelClientWriteVectorElement(&good, 1),
    };
    return static_cast<int>(std::count(std::begin(results), std::end(results), 0));
}
