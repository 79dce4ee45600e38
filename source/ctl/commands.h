// What each command does, once its words are known to be good.
//
// Each throws Failure or ostrel::Error.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
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

void getValues(Context& context, std::vector<ShownKey> keys);
void countInstances(Context& context, const std::string& name, uint32_t owner);
void listInstances(Context& context, const std::string& name, uint32_t owner);

// Of a key that was read in vain.
std::string whyMissing(ostrel::Session& session, const ostrel::Key& key);

// ostrelTypeNone: the type that the key has now.
void setValue(Context& context, const ShownKey& key, ostrelValueType type, const std::string& value);
void eraseKeys(Context& context, const std::vector<std::string>& names);
void newInstance(Context& context, const std::string& templateName, const std::string& structure,
                 uint32_t owner);
void removeInstances(Context& context, const std::vector<ShownKey>& instances);
void removeOwned(Context& context, const std::string& structure, uint32_t owner);
// path: - is the standard input.
void applyBatch(Context& context, const std::string& path);

struct Watch {
    std::vector<std::string> patterns{};  // a name, or the beginning of names with a * behind it; none: all
    std::set<uint32_t> owners{};          // of instances whose values are printed, too
    size_t count = 0;                     // of changed keys, after which it returns; 0: never
};
// Prints changed keys until then, or until the daemon ends, which is a failure.
void watchChanges(Context& context, const Watch& watch);
