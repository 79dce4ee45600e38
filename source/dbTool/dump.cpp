// The effective database as lines that the store reads as defaults, each with its origin behind it.
#include <algorithm>
#include <iostream>

#include "dbTool/commands.h"
#include "dbTool/origins.h"
#include "text/grammar.h"

namespace {

constexpr size_t lastColumn = 56;  // of the comments

// As a line shows it behind its key and type.
std::string valueText(const store::Value& value) {
    store::LineWriter writer;
    writer.value({"k"}, value);
    const size_t start = writer.text.find(' ', 2) + 1;
    return writer.text.substr(start, writer.text.size() - 1 - start);
}

class Dumper final : public store::CellVisitor {
public:
    Dumper(const Databases& databases, const Patterns& patterns) : origins_(databases), patterns_(patterns) {}

    void instance(const store::RowKey& key, const store::InstanceCell& cell) override {
        template_ = cell.templateName;
        if (!cell.present || !patterns_.match(key))
            return;
        store::LineWriter writer;
        writer.instance(key, cell);
        add(std::move(writer.text), cell.changed ? "live" : "default");
    }

    void cell(const store::RowKey& key, const store::Cell& cell) override {
        if (!cell.present || !patterns_.match(key))
            return;
        store::LineWriter writer;
        writer.value(key, cell);
        add(std::move(writer.text), cell.changed        ? changed(key)
                                    : cell.fromTemplate ? ofTemplate()
                                                        : "default");
    }

    void print() const {
        size_t column = 0;
        for (const auto& [line, origin] : rows_)
            column = std::max(column, std::min(line.size(), lastColumn));
        for (const auto& [line, origin] : rows_) {
            const size_t blanks = line.size() < column ? column - line.size() : 0;
            std::cout << line << std::string(blanks, ' ') << "  # " << origin << '\n';
        }
    }

private:
    std::string ofTemplate() const {
        std::string origin = "template ";
        return origin += template_;
    }

    std::string changed(const store::RowKey& key) const {
        const Origins::Default before = origins_.value(key);
        if (before.value == nullptr)
            return "live";
        return "live, " + (before.isTemplates ? ofTemplate() : "default") + ' ' + valueText(*before.value);
    }

    void add(std::string line, std::string origin) {
        line.pop_back();
        rows_.emplace_back(std::move(line), std::move(origin));
    }

    Origins origins_;
    const Patterns& patterns_;
    std::string template_;  // of the instance that was visited last
    std::vector<std::pair<std::string, std::string>> rows_;
};

}  // namespace

void dump(const store::Paths& paths, const Patterns& patterns) {
    const Databases databases((Snapshot(paths)));
    Dumper dumper(databases, patterns);
    databases.effective.visitCells(dumper);
    dumper.print();
    requireKnown(databases.effective, patterns);
}
