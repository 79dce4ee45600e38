// Bare names, for programs that complete what a user types.
#include <iostream>

#include "dbTool/commands.h"
#include "dbTool/faults.h"
#include "dbTool/snapshot.h"

namespace {

class NamePrinter final : public store::CellVisitor {
public:
    NamePrinter(std::string_view kind, std::string_view prefix) : kind_(kind), prefix_(prefix) {}

    void instance(const store::RowKey& key, const store::InstanceCell& cell) override {
        if (cell.present && kind_ == "structures")
            print(std::string(key.name));
    }

    void cell(const store::RowKey& key, const store::Cell& cell) override {
        if (!cell.present)
            return;
        if (kind_ == "keys")
            print(key.wholeName() + (key.index != 0 ? '[' + std::to_string(key.index) + ']' : ""));
        if (kind_ == "vectors" && key.index != 0 && key.member.empty())
            print(std::string(key.name));
    }

    // Names come sorted, so equal ones in a row.
    void print(const std::string& name) {
        if (name.starts_with(prefix_) && name != last_)
            std::cout << name << '\n';
        last_ = name;
    }

private:
    std::string_view kind_;
    std::string_view prefix_;
    std::string last_;
};

}  // namespace

void printNames(const store::Paths& paths, std::string_view kind, std::string_view prefix) {
    const Snapshot snapshot(paths);
    store::Model model;
    Faults ignored;
    snapshot.loadFactory(model, ignored);
    snapshot.loadLive(model, ignored);
    NamePrinter printer(kind, prefix);
    if (kind != "templates")
        return model.visitCells(printer);
    for (const auto& [name, members] : model.templates())
        printer.print(name);
}
