#include "ctl/batchFile.h"
#include "ctl/commands.h"
#include "ctl/interruption.h"
#include "ctl/knownNames.h"
#include "ctl/lines.h"
#include "ctl/progress.h"
#include "ctl/words.h"

namespace {

constexpr ostrelIndex largestKey = UINT32_MAX;
constexpr size_t longBatch = 100;
constexpr char nothingSent[] = "nothing was sent";

std::string faultKey(const ostrel::Fault& fault, const Batch& batch) {
    const auto found = batch.structures.find(fault.name);
    const size_t structure = found != batch.structures.end() ? found->second : 0;
    for (const NewInstance& made : batch.instances) {
        if (made.index == fault.index)
            return labelledKey(fault.name, structure, made.label);
    }
    const auto index = fault.index <= largestKey ? static_cast<uint32_t>(fault.index) : 0;
    return ShownKey{{fault.name, index}, index != 0 ? structure : 0}.text();
}

// What to do when it is not known whether a commit has come to pass.
const char* adviceFor(ostrelStatus status) {
    switch (exitStatus(status)) {
        case Status::busy:
            return "; the change may still be made: read it back before you repeat it";
        case Status::notRunning:
            return "; the change may be made: read it back when the daemon runs again";
        default:
            return "; the change may have been made: read it back before you repeat it";
    }
}

// What became of a batch that was not applied.
Failure describe(const ostrel::Error& error, const Batch& batch, const std::string& file) {
    if (error.fault()) {
        const ostrel::Fault& fault = *error.fault();
        const std::string hint = fault.index == 0 ? indexHint({fault.name, 0}) : "";
        return {error.status(),
                "nothing is changed",
                file,
                {{fault.line, faultKey(fault, batch), hint.empty() ? fault.reason : hint}}};
    }
    if (!batch.transaction.mayBeApplied())
        return {error.status(), error.what(), file};
    return {error.status(), error.what() + std::string(adviceFor(error.status())), file};
}

void commit(Context& context, Batch& batch, const std::string& file = "") {
    std::optional<ProgressBar> bar;
    if (context.showProgress && batch.transaction.count() >= longBatch)
        bar.emplace(context.session, batch.transaction.count());
    const auto interrupted = [&](const std::string& outcome) {
        return context.output->text({OSTREL_FAILED, "interrupted; " + outcome, file});
    };
    const Interruption interruption(
        batch.transaction, interrupted("nothing is changed"),
        interrupted("the change may have been made, or may still be: read it back "
                    "before you repeat it"));
    try {
        if (context.onlyCheck)
            context.session.check(batch.transaction);
        else
            context.session.apply(batch.transaction);
    } catch (const ostrel::Error& error) {
        throw describe(error, batch, file);
    }
}

ostrelValueType typeOf(ostrel::Session& session, const ShownKey& key) {
    try {
        return session.read(key.name, key.index).type;
    } catch (const ostrel::Error& error) {
        if (error.status() != OSTREL_MISSING)
            throw;
        throw Failure(OSTREL_MISSING,
                      key.text() + ": " + whyMissing(session, key) +
                          "; with the type in front of the "
                          "value, vector elements and erased factory keys can be made, others only if the "
                          "daemon runs with --key-create-allowed");
    }
}

}  // namespace

void setValue(Context& context, const ShownKey& key, ostrelValueType type, const std::string& value) {
    if (type == ostrelTypeNone)
        type = typeOf(context.session, key);
    Batch batch;
    batch.structures[key.name] = key.structure;
    try {
        batch.transaction.set(key.name, key.index, valueArgument(type, value));
    } catch (const std::runtime_error& error) {  // Failure or ostrel::Error
        throw Failure(OSTREL_INVALID, nothingSent, "", {{.key = key.text(), .reason = error.what()}});
    }
    commit(context, batch);
}

void eraseKeys(Context& context, const std::vector<std::string>& names) {
    Batch batch;
    for (const std::string& name : names)
        batch.transaction.erase(name);
    commit(context, batch);
}

void newInstance(Context& context, const std::string& templateName, const std::string& structure,
                 uint32_t owner) {
    Batch batch;
    const ostrelIndex instance = batch.transaction.newInstance(templateName, structure, owner);
    commit(context, batch);
    context.output->newKey(batch.transaction.key(instance));
}

void removeInstances(Context& context, const std::vector<ShownKey>& instances) {
    Batch batch;
    for (const ShownKey& instance : instances)
        batch.transaction.remove(instance.name, instance.index);
    commit(context, batch);
}

void removeOwned(Context& context, const std::string& structure, uint32_t owner) {
    if (context.session.count(structure, owner) == 0)
        requireKnown(structure);
    Batch batch;
    batch.transaction.removeOwned(structure, owner);
    commit(context, batch);
}

void applyBatch(Context& context, const std::string& path) {
    const std::string file = path == "-" ? "standard input" : path;
    Batch batch = parseBatch(readBatchFile(path));
    if (!batch.problems.empty())
        throw Failure(OSTREL_INVALID, nothingSent, file, std::move(batch.problems));
    if (batch.transaction.count() == 0)
        context.output->noChanges();
    commit(context, batch, file);
    context.output->instances(batch);
}
