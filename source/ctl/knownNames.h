// Tells an empty list from a misspelt name, which the daemon answers alike.
#pragma once

#include <string>

// Throws Failure with OSTREL_MISSING when nothing in the database has the name or had it: no key, vector,
// structure or template. It is read from the database's files; when these cannot be read nobody knows, and it
// does not throw.
void requireKnown(const std::string& name);
