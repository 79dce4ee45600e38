#include "pluginBench/changeApplier.h"

#include "common/messageCodes.h"
#include "server/changeMessages.h"

namespace pluginBench {
namespace {

using LineKind = store::Line::Kind;

// As it comes out of a message.
void fill(OstrelValue& record, const store::Line& line) {
    record.setName(line.key().wholeName().c_str());
    std::string bytes = line.value.bytes;
    bytes.resize(store::sizeOf(line.value));  // with a text's NUL
    record.setValue(static_cast<unsigned int>(bytes.size()), reinterpret_cast<unsigned char*>(bytes.data()));
    record.setType(line.value.type);
}

}  // namespace

bool ChangeApplier::makeInstance(const store::BatchLine& line) {
    OstrelValue record;
    fill(record, line.line);
    record.setTpltName(line.line.instance.templateName.c_str());
    record.owner = line.line.instance.owner;
    if (!applyChanges(messageCode::instanciate, handle_, {&record, 1}))
        return false;
    instances_[line.label] = record.pKey;
    return true;
}

bool ChangeApplier::apply(const store::BatchLine& line) {
    if (line.line.kind == LineKind::blank)
        return true;
    if (line.line.kind == LineKind::instance)
        return makeInstance(line);
    OstrelValue record;
    fill(record, line.line);
    if (line.owner) {
        record.owner = *line.owner;
        return applyChanges(messageCode::deinstanciateOwner, handle_, {&record, 1});
    }
    record.pKey = line.label.empty() ? line.line.index : instances_.at(line.label);
    if (line.line.kind == LineKind::value)
        return applyChanges(messageCode::notify, handle_, {&record, 1});
    const bool isPlain = line.line.kind == LineKind::erased && record.pKey == 0;
    return applyChanges(isPlain ? messageCode::erase : messageCode::deinstanciate, handle_, {&record, 1});
}

}  // namespace pluginBench
