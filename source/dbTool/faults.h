// What is wrong with the lines of the files, for the user.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "db/loader.h"
#include "text/shown.h"

struct Fault {
    std::string path;
    size_t line = 0;  // 0: of no line
    std::string reason;
    std::string text;  // of the line
    store::LineFault kind = store::LineFault::bad;

    bool isLoss() const { return kind != store::LineFault::templateGone; }
    // PATH:LINE: REASON
    std::string place() const;
    // The same, and the text.
    std::string whole() const { return text.empty() ? place() : place() + ": " + store::printable(text); }
};

class Faults final : public store::LoadReport {
public:
    void fault(const store::LinePlace& place, store::LineFault fault, const char* reason) override;

    void add(Fault fault);

    const std::vector<Fault>& rows() const { return rows_; }
    size_t losses() const { return losses_; }

private:
    std::vector<Fault> rows_;
    size_t losses_ = 0;  // among them
};

// "1 line", "2 lines".
std::string counted(size_t count, const std::string& noun);

// Tells the user on standard error of each line that is lost when the live file is written anew. Throws
// Failure when there is one and the user has not agreed to that.
void requireConsent(const Faults& faults, bool isGiven);
