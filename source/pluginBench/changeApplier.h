// The lines of a commit, carried out as the server carries out a client's messages.
#pragma once

#include <map>
#include <string>

#include "text/batch.h"

namespace pluginBench {

// Of one transaction.
class ChangeApplier {
public:
    explicit ChangeApplier(long handle) : handle_(handle) {}

    // False: refused, the log says why; the transaction is still open.
    bool apply(const store::BatchLine& line);

private:
    bool makeInstance(const store::BatchLine& line);

    const long handle_;
    std::map<std::string, uint32_t> instances_{};  // primary keys of the new ones, by label
};

}  // namespace pluginBench
