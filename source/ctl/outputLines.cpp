#include <iostream>

#include "ctl/lines.h"
#include "ctl/output.h"
#include "text/shown.h"

namespace {

// FILE:LINE: KEY: REASON, as far as they are known.
std::string problemLine(const Failure& failure, const Problem& problem) {
    std::string line = failure.file();
    if (problem.line != 0)
        line.append(":").append(std::to_string(problem.line));
    for (const std::string& part : {problem.key, problem.reason}) {
        if (!line.empty() && !part.empty())
            line.append(": ");
        line.append(part);
    }
    return line;
}

class Lines final : public Output {
public:
    void values(const std::vector<ShownKey>& keys,
                const std::vector<std::optional<ostrel::Value>>& values) override {
        for (size_t i = 0; i < keys.size(); ++i) {
            if (values[i])
                std::cout << valueLine(keys[i], *values[i]) << '\n';
        }
    }

    void count(uint32_t count) override { std::cout << count << '\n'; }

    void list(const std::vector<uint32_t>& keys) override {
        for (const uint32_t key : keys)
            std::cout << key << '\n';
    }

    void newKey(uint32_t key) override {
        if (key != 0)
            std::cout << key << '\n';
    }

    void instances(const Batch& batch) override {
        for (const NewInstance& made : batch.instances) {
            if (const uint32_t key = batch.transaction.key(*made.index))
                std::cout << instanceLine(made.structure, key, made.templateName, made.owner) << '\n';
        }
    }

    void change(const std::string& name, const std::vector<ShownKey>& keys,
                const std::vector<ostrel::Value>& values) override {
        for (size_t i = 0; i < keys.size(); ++i)
            std::cout << valueLine(keys[i], values[i]) << '\n';
        if (keys.empty())
            std::cout << keyText(name, 0) << " changed\n";
    }

    void noChanges() override { std::cerr << "ostrelCtl: no changes\n"; }

    std::string text(const Failure& failure) const override {
        std::vector<std::string> lines;
        for (const Problem& problem : failure.problems())
            lines.push_back(problemLine(failure, problem));
        if (const std::string text = failure.what(); lines.size() == 1 && !text.empty())
            lines.front() += "; " + text;
        else if (!text.empty())
            lines.push_back(text);
        std::string all;
        for (const std::string& line : lines)
            all += "ostrelCtl: " + store::printable(line) + '\n';
        return all;
    }
};

}  // namespace

std::unique_ptr<Output> makeLines() { return std::make_unique<Lines>(); }
