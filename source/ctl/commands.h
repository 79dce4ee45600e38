// What each command does once its arguments are known to be good.
//
// Results go to the standard output, one per line. Each throws Failure, or ConnectionClosed when the daemon
// ends.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ctl/request.h"
#include "ctl/syntax.h"

// Prints the values as lines that the database files and (behind "set") a batch can hold.
void getValues(const std::vector<Key>& keys);
void countInstances(const std::string& name, std::uint32_t owner);
void listInstances(const std::string& name, std::uint32_t owner);
// Commits the changes in one transaction and prints the primary keys of new instances.
void applyChanges(std::span<const Request> changes);
void shutDown();
