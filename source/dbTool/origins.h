// What would be if the live file did not say otherwise.
#pragma once

#include "dbTool/snapshot.h"

class Origins {
public:
    // databases must outlive the object.
    explicit Origins(const Databases& databases) : databases_(databases) {}

    struct Default {
        const store::Value* value = nullptr;  // null: there is none
        bool isTemplates = false;             // it is the template's
    };
    // For a member of an instance that the live file makes: what its template says.
    Default value(const store::RowKey& key) const;
    // The one of the defaults; null: there is none.
    const store::InstanceCell* instance(const store::RowKey& key) const;

private:
    const Databases& databases_;
};
