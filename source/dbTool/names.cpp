// Bare names, for programs that complete what a user types.
#include <iostream>
#include <set>

#include "dbTool/changeLines.h"
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
            printKey(key);
        if (kind_ == "vectors" && key.index != 0 && key.member.empty())
            print(std::string(key.name));
    }

    // Of a member in the form that goes on as the prefix begins; STRUCT[PKEY].MEMBER when both do.
    void printKey(const store::RowKey& key) {
        const std::string index = key.index != 0 ? '[' + std::to_string(key.index) + ']' : "";
        const std::string shown = std::string(key.name) + index + '.' + std::string(key.member);
        print(!key.member.empty() && shown.starts_with(prefix_) ? shown : key.wholeName() + index);
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

class NameCollector final : public store::CellVisitor {
public:
    void instance(const store::RowKey& key, const store::InstanceCell&) override { names.emplace(key.name); }
    void cell(const store::RowKey& key, const store::Cell&) override { names.insert(key.wholeName()); }

    std::set<std::string> names{};
};

void printAll(const store::Model& model, std::string_view prefix) {
    NameCollector collector;
    model.visitCells(collector);
    // Structures whose instances are gone keep their last primary key.
    forEachChange(model, [&](store::Line::Kind kind, const store::RowKey& key, const std::string&) {
        if (kind == store::Line::Kind::lastKey)
            collector.names.emplace(key.name);
    });
    for (const auto& [name, members] : model.templates())
        collector.names.insert(name);
    for (const std::string& name : collector.names) {
        if (name.starts_with(prefix))
            std::cout << name << '\n';
    }
}

}  // namespace

void printNames(const store::Paths& paths, std::string_view kind, std::string_view prefix) {
    const Snapshot snapshot(paths);
    store::Model model;
    Faults ignored;
    snapshot.loadFactory(model, ignored);
    snapshot.loadLive(model, ignored);
    if (kind == "all")
        return printAll(model, prefix);
    NamePrinter printer(kind, prefix);
    if (kind != "templates")
        return model.visitCells(printer);
    for (const auto& [name, members] : model.templates())
        printer.print(name);
}
