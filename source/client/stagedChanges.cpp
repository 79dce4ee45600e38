#include "client/stagedChanges.h"

#include <functional>

#include "client/callFailure.h"
#include "client/request.h"
#include "text/names.h"
#include "text/values.h"

namespace client {
namespace {

constexpr ostrelIndex firstNewInstance = ostrelIndex{1} << 32U;

void require(store::Result result) {
    if (!result.ok())
        throw Failure(OSTREL_INVALID, result.refusal);
}

void checkName(std::string_view name, const char* what) {
    if (const store::Result result = store::checkName(name); !result.ok())
        throw Failure(OSTREL_INVALID, std::string(what) + ": " + result.refusal);
}

void checkValue(const Change& change) {
    store::Value unused;
    require(store::makeValue(change.type, asValue(change.value), unused));
}

void checkSize(const Change& change) {
    const size_t size =
        listHead +
        entrySize({.name = change.name, .value = asValue(change.value), .tpltName = change.templateName});
    if (size > receiveBufferSize)
        throw Failure(OSTREL_INVALID, "the value is " + std::to_string(size - receiveBufferSize) +
                                          " bytes too long for a message to the daemon");
}

}  // namespace

bool StagedChanges::isNewInstance(ostrelIndex index) { return index >= firstNewInstance; }

const uint32_t* StagedChanges::key(ostrelIndex index) const {
    return index - firstNewInstance < keys_.size() ? &keys_[index - firstNewInstance] : nullptr;
}

void StagedChanges::checkIndex(const Change& change) const {
    if (!isNewInstance(change.index))
        return;
    if (change.index - firstNewInstance >= structures_.size())
        throw Failure(OSTREL_INVALID, "the index is neither a number up to 4294967295 nor a new instance");
    const std::string& structure = structures_[change.index - firstNewInstance];
    const bool isMember = change.code == messageCode::notify && change.name.starts_with(structure + '.');
    const bool isInstance = change.code == messageCode::deinstanciate && change.name == structure;
    if (!isMember && !isInstance)
        throw Failure(OSTREL_INVALID, "the new instance is one of " + structure);
}

void StagedChanges::check(const Change& change) const {
    checkName(change.name, "name");
    if (change.code == messageCode::instanciate)
        checkName(change.templateName, "template");
    if (change.code == messageCode::notify)
        checkValue(change);
    if (change.code == messageCode::deinstanciate && change.index == 0)
        throw Failure(OSTREL_INVALID, "a primary key or index is a number from 1");
    checkIndex(change);
    checkSize(change);
}

void StagedChanges::stage(Change change, const std::optional<std::string>& problem) {
    change.line = line_;
    try {
        if (problem)
            throw Failure(OSTREL_INVALID, *problem);
        check(change);
    } catch (const Failure& failure) {
        if (!spoiled_)
            refused_ = std::move(change);
        spoil(failure.what());
        throw;
    }
    if (!spoiled_)
        list_.push_back(std::move(change));
}

void StagedChanges::spoil(const std::string& reason) noexcept {
    if (spoiled_)
        return;
    spoiled_ = true;
    try {
        stagingFault_ = {list_.size(), reason};
    } catch (...) {
        stagingFault_.reset();
    }
}

void StagedChanges::setNumber(std::string_view name, ostrelIndex index, ostrelValueType type,
                              uint32_t number) {
    Change change{.code = messageCode::notify, .name = std::string(name), .type = type, .index = index};
    const store::TypeInfo& info = store::infoOf(type);
    std::optional<std::string> problem;
    if (info.size == 0)
        problem = "a number is a " +
                  store::typeList("or", [](const store::TypeInfo& other) { return !other.isText; });
    else if (number > info.largest)
        problem = "a " +
                  store::typeList(
                      "or", [&](const store::TypeInfo& other) { return other.largest == info.largest; }) +
                  " is at most " + std::to_string(info.largest);
    change.value = store::makeNumber(type, number).bytes;
    stage(std::move(change), problem);
}

void StagedChanges::setText(std::string_view name, ostrelIndex index, ostrelValueType type,
                            std::string_view text) {
    Change change{.code = messageCode::notify, .name = std::string(name), .type = type, .index = index};
    change.value.assign(text).push_back('\0');
    std::optional<std::string> problem;
    if (!store::isText(type))
        problem = "a text is an " + store::typeList("or", std::mem_fn(&store::TypeInfo::isText));
    stage(std::move(change), problem);
}

void StagedChanges::erase(std::string_view name) {
    stage({.code = messageCode::erase, .name = std::string(name)});
}

ostrelIndex StagedChanges::newInstance(std::string_view templateName, std::string_view structure,
                                       uint32_t owner) {
    stage({.code = messageCode::instanciate,
           .name = std::string(structure),
           .owner = owner,
           .templateName = std::string(templateName)});
    structures_.emplace_back(structure);
    return firstNewInstance + structures_.size() - 1;
}

void StagedChanges::remove(std::string_view name, ostrelIndex index) {
    stage({.code = messageCode::deinstanciate, .name = std::string(name), .index = index});
}

void StagedChanges::removeOwned(std::string_view name, uint32_t owner) {
    stage({.code = messageCode::deinstanciateOwner, .name = std::string(name), .owner = owner});
}

}  // namespace client
