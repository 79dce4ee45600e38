// What a name may serve as. Beside its plain value it is a vector, a structure or one structure's member.
#pragma once

#include <string_view>

#include "db/cells.h"
#include "db/structures.h"
#include "text/values.h"

namespace store {

class NameRules {
public:
    // Both must outlive the object.
    NameRules(const Cells& cells, const Structures& structures) : cells_(cells), structures_(structures) {}

    // May the name have elements of its own?
    Result checkVector(std::string_view name) const;
    // May instances be made under the name?
    Result checkStructure(std::string_view name) const;
    // May the name serve as a member of the structure, now or in future?
    Result checkMember(std::string_view name, std::string_view structure) const;

private:
    const Cells& cells_;
    const Structures& structures_;
};

// Calls use(structure name, member name) for each way to read the name as STRUCTURE.MEMBER, until it returns
// true.
template <class Use>
bool anySplit(std::string_view name, Use use) {
    for (size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1)) {
        if (use(name.substr(0, dot), name.substr(dot + 1)))
            return true;
    }
    return false;
}

}  // namespace store
