// How results and failures are shown: as lines for people, or as JSON for programs.
//
// Results go to the standard output, failures to the standard error.
#pragma once

#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ctl/batch.h"
#include "ctl/commandFailure.h"
#include "ctl/shownKey.h"
#include "ostrel/client.hpp"

class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output() = default;

    // As many values as keys; nothing for one that is missing.
    virtual void values(const std::vector<ShownKey>& keys,
                        const std::vector<std::optional<ostrel::Value>>& values) = 0;
    virtual void count(uint32_t count) = 0;
    virtual void list(const std::vector<uint32_t>& keys) = 0;
    // Of the one instance that was made; 0: it was only tried.
    virtual void newKey(uint32_t key) = 0;
    // Those that the batch made; 0 for the keys when they were only tried.
    virtual void instances(const Batch& batch) = 0;
    // A changed key with the values that it has now, which may be none.
    virtual void change(const std::string& name, const std::vector<ShownKey>& keys,
                        const std::vector<ostrel::Value>& values) = 0;
    // The batch has none: a hint, as the file may be the wrong one.
    virtual void noChanges() = 0;
    // With its line breaks.
    virtual std::string text(const Failure& failure) const = 0;
    void failure(const Failure& failure) const { std::cerr << text(failure) << std::flush; }
};

std::unique_ptr<Output> makeLines();
std::unique_ptr<Output> makeJson();
