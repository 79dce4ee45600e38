#include "dbTool/faults.h"

#include <iostream>

#include "dbTool/toolFailure.h"

std::string Fault::place() const {
    return path + (line != 0 ? ":" + std::to_string(line) : "") + ": " + reason;
}

void Faults::fault(const store::LinePlace& place, store::LineFault fault, const char* reason) {
    add({place.path, place.number, reason, std::string(place.text), fault});
}

void Faults::add(Fault fault) {
    losses_ += fault.isLoss() ? 1U : 0U;
    rows_.push_back(std::move(fault));
}

std::string counted(size_t count, const std::string& noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

void requireConsent(const Faults& faults, bool isGiven) {
    for (const Fault& fault : faults.rows()) {
        if (fault.isLoss())
            std::cerr << "ostrelDbTool: " << (isGiven ? "dropped: " : "would be dropped: ") << fault.whole()
                      << '\n';
    }
    if (!isGiven && faults.losses() != 0)
        throw Failure("the rewrite would drop " + counted(faults.losses(), "change") +
                      " that the defaults no longer allow; --force does it all the same");
}
