// The templates of the factory: the members that each gives its instances, with their defaults.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "text/values.h"

namespace store {

using Template = std::map<std::string, Value, std::less<>>;  // members and their defaults

class Templates {
public:
    using Map = std::map<std::string, Template, std::less<>>;

    // Borrowed as long as the object lives; null: there is none.
    const Template* find(std::string_view name) const {
        const auto found = templates_.find(name);
        return found != templates_.end() ? &found->second : nullptr;
    }
    const Map& all() const { return templates_; }

    void add(std::string_view name) { templates_.try_emplace(std::string(name)); }
    Result addMember(std::string_view templateName, std::string_view member, Value value) {
        const auto found = templates_.find(templateName);
        if (found == templates_.end())
            return {"no template is open"};
        return found->second.emplace(member, std::move(value)).second ? Result{}
                                                                      : Result{"the member is given twice"};
    }

private:
    Map templates_;
};

}  // namespace store
