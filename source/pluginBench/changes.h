// The lines of a commit, carried out as the server carries out a client's messages.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace pluginBench {

// Why it is no change; empty when it is one, or a blank line or comment. Whether the database takes it shows
// only when it is carried out.
std::string problemOf(std::string_view line);

// The changes of one transaction.
class Changes {
public:
    explicit Changes(long handle) : handle_(handle) {}

    // The line has no problem. False: refused, the log says why; the transaction is still open.
    bool apply(std::string_view line);

private:
    const long handle_;
    std::map<std::string, unsigned int> instances_{};  // primary keys of the new ones, by label
};

}  // namespace pluginBench
