// What each command does, once its words are known to be good.
//
// Each throws Failure or ostrel::Error.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ctl/output.h"
#include "ostrel/client.hpp"

struct Context {
    ostrel::Session session{"ostrelCtl"};
    std::unique_ptr<Output> output = makeLines();
    bool onlyCheck = false;     // changes are tried and rolled back
    bool showProgress = false;  // on the standard error, when a batch takes long
};

void getValues(Context& context, const std::vector<ostrel::Key>& keys);
void countInstances(Context& context, const std::string& name, std::uint32_t owner);
void listInstances(Context& context, const std::string& name, std::uint32_t owner);

// ostrelTypeNone: the type that the key has now.
void setValue(Context& context, const ostrel::Key& key, ostrelValueType type, const std::string& value);
void eraseKeys(Context& context, const std::vector<std::string>& names);
void newInstance(Context& context, const std::string& templateName, const std::string& structure,
                 std::uint32_t owner);
void removeInstances(Context& context, const std::vector<ostrel::Key>& instances);
void removeOwned(Context& context, const std::string& structure, std::uint32_t owner);
// path: - is the standard input.
void applyBatch(Context& context, const std::string& path);
