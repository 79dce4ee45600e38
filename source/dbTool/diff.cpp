// What the live file says against the defaults.
#include <iostream>

#include "dbTool/commands.h"
#include "dbTool/origins.h"
#include "text/grammar.h"

namespace {

class Differ final : public store::CellVisitor {
public:
    Differ(const Databases& databases, const Patterns& patterns) : origins_(databases), patterns_(patterns) {}

    void instance(const store::RowKey& key, const store::InstanceCell& cell) override {
        if (!cell.changed || !patterns_.match(key))
            return;
        if (const store::Instance* before = origins_.instance(key); before != nullptr)
            print('-', [&](store::RowVisitor& writer) { writer.instance(key, *before); });
        print('+', [&](store::RowVisitor& writer) {
            cell.present ? writer.instance(key, cell) : writer.removed(key, store::Origin::unknown);
        });
    }

    void cell(const store::RowKey& key, const store::Cell& cell) override {
        if (!cell.changed || !patterns_.match(key))
            return;
        if (const store::Value* before = origins_.value(key).value; before != nullptr)
            print('-', [&](store::RowVisitor& writer) { writer.value(key, *before); });
        print('+', [&](store::RowVisitor& writer) {
            cell.present ? writer.value(key, cell) : writer.erased(key, store::Origin::unknown);
        });
    }

    bool isEmpty() const { return isEmpty_; }

private:
    template <class Write>
    void print(char sign, Write write) {
        store::LineWriter writer;
        write(writer);
        std::cout << sign << ' ' << writer.text;
        isEmpty_ = false;
    }

    Origins origins_;
    const Patterns& patterns_;
    bool isEmpty_ = true;
};

}  // namespace

void diff(const store::Paths& paths, const Patterns& patterns) {
    const Databases databases((Snapshot(paths)));
    Differ differ(databases, patterns);
    databases.effective.visitCells(differ);
    if (differ.isEmpty())
        std::cout << "# nothing is changed\n";
    requireKnown(databases.effective, patterns);
}
