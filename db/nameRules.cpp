#include "db/nameRules.h"

#include "text/names.h"

namespace store {
namespace {

bool isMember(const Elements* elements) { return elements != nullptr && elements->structure != nullptr; }

bool isKnownVector(const Elements* elements) { return elements != nullptr && elements->isKnownVector(); }

}  // namespace

Result NameRules::checkVector(std::string_view name) const {
    if (structures_.find(name) != nullptr)
        return {"the name is a structure's"};
    return isMember(cells_.elements(name)) ? Result{"the name is a structure member's"} : Result{};
}

Result NameRules::checkStructure(std::string_view name) const {
    const Elements* found = cells_.elements(name);
    if (isKnownVector(found))
        return {"the name is a vector's"};
    return isMember(found) ? Result{"the name is a structure member's"} : Result{};
}

Result NameRules::checkMember(std::string_view name, std::string_view structure) const {
    if (const Result result = checkName(name); !result.ok())
        return result;
    if (structures_.find(name) != nullptr)
        return {"a member's name is that of a structure"};
    const Elements* found = cells_.elements(name);
    if (isKnownVector(found))
        return {"a member's name is that of a vector"};
    return isMember(found) && found->structure->name != structure
               ? Result{"a member's name belongs to another structure"}
               : Result{};
}

}  // namespace store
