// Whether something was done, or why not.
#pragma once

namespace store {

// A refusal is a text that lives as long as the program; null is success.
struct [[nodiscard]] Result {
    const char* refusal = nullptr;

    bool ok() const { return refusal == nullptr; }
};

}  // namespace store
