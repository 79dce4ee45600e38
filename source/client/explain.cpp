#include "client/explain.h"

#include "client/reading.h"
#include "common/messageCodes.h"

namespace client {
namespace {

std::string explainWrite(Connection& connection, const Change& change, const Deadline& deadline) {
    if (StagedChanges::isNewInstance(change.index))
        return "the new instance has no such member of this type";
    const Key key{change.name, static_cast<uint32_t>(change.index)};
    if (auto present = readValues(connection, {&key, 1}, deadline).front()) {
        return present->type != change.type ? "the key is a " + std::string(store::infoOf(present->type).name)
                                            : "the daemon does not tell why";
    }
    return key.index == 0 ? "there is no such key, and none may be created here"
                          : "there is no such vector or instance, and none may be created here";
}

}  // namespace

std::string explainRefusal(Connection& connection, const Change& change, const Deadline& deadline) {
    switch (change.code) {
        case messageCode::notify:
            return explainWrite(connection, change, deadline);
        case messageCode::erase:
            return "there is nothing to erase, or it is a structure's member";
        case messageCode::instanciate:
            return "there is no template " + change.templateName +
                   ", or a name that it needs serves otherwise";
        case messageCode::deinstanciate:
            return "there is no such instance or element";
        default:
            return "there is no such structure or vector";
    }
}

}  // namespace client
