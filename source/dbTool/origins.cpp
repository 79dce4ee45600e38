#include "dbTool/origins.h"

const store::InstanceCell* Origins::instance(const store::RowKey& key) const {
    return databases_.factory.instance(key.name, key.index);
}

Origins::Default Origins::value(const store::RowKey& key) const {
    const store::InstanceCell* owner =
        key.member.empty() ? nullptr : databases_.effective.instance(key.name, key.index);
    if (owner != nullptr && owner->changed) {
        const store::Template* members = databases_.effective.findTemplate(owner->templateName);
        if (members == nullptr)
            return {};
        const auto member = members->find(key.member);
        return member != members->end() ? Default{&member->second, true} : Default{};
    }
    const store::Cell* cell = databases_.factory.cell(key.wholeName(), key.index);
    return cell != nullptr ? Default{cell, cell->fromTemplate} : Default{};
}
