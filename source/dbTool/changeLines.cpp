#include "dbTool/changeLines.h"

#include <utility>

namespace {

using Kind = store::Line::Kind;

class LineVisitor final : public store::RowVisitor {
public:
    explicit LineVisitor(const UseChange& use) : use_(use) {}

    void value(const store::RowKey& key, const store::Value& value) override {
        writer_.value(key, value);
        hand(Kind::value, key);
    }
    void erased(const store::RowKey& key, store::Origin origin) override {
        writer_.erased(key, origin);
        hand(Kind::erased, key);
    }
    void instance(const store::RowKey& key, const store::Instance& instance) override {
        writer_.instance(key, instance);
        hand(Kind::instance, key);
    }
    void removed(const store::RowKey& key, store::Origin origin) override {
        writer_.removed(key, origin);
        hand(Kind::removed, key);
    }
    void lastKey(std::string_view structure, uint32_t last) override {
        writer_.lastKey(structure, last);
        hand(Kind::lastKey, {structure});
    }

private:
    void hand(Kind kind, const store::RowKey& key) {
        writer_.text.pop_back();
        use_(kind, key, std::exchange(writer_.text, {}));
    }

    const UseChange& use_;
    store::LineWriter writer_;
};

}  // namespace

void forEachChange(const store::Model& model, const UseChange& use) {
    LineVisitor visitor(use);
    model.visitChanges(visitor);
}
