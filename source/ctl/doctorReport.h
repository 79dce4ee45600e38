// What doctor found, and how it is told to a person or to a program.
#pragma once

#include <string>
#include <vector>

enum class State { ok, warn, bad };  // the worst is the greatest

struct Finding {
    State state = State::ok;
    std::string check{};   // what was looked at
    std::string found{};   // one line
    std::string advice{};  // what to do; empty when it is ok
};

class DoctorReport {
public:
    // For a program the findings come as one JSON array, from finish(); for a person each comes at once.
    explicit DoctorReport(bool json);

    void ok(const std::string& check, const std::string& found) { add({State::ok, check, found, ""}); }
    void warn(const std::string& check, const std::string& found, const std::string& advice) {
        add({State::warn, check, found, advice});
    }
    void bad(const std::string& check, const std::string& found, const std::string& advice) {
        add({State::bad, check, found, advice});
    }
    void add(Finding finding);

    bool hasBad() const;
    void finish() const;

private:
    void print(const Finding& finding) const;

    bool json_;
    bool coloured_;
    std::vector<Finding> findings_;
};
