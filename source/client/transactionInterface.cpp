// The C interface's transactions.
#include "client/handles.h"

using client::guard;
using client::onSession;
using client::requireGiven;

namespace {

void setFault(ostrelTransaction& transaction, const std::optional<client::Fault>& found) noexcept {
    try {
        transaction.found = found;
    } catch (...) {
        transaction.found.reset();  // no memory for it
    }
    if (!transaction.found)
        return;
    const client::Change& change = transaction.changes.at(found->change);
    transaction.fault = {.change = found->change,
                         .line = change.line,
                         .name = change.name.c_str(),
                         .index = change.index,
                         .reason = transaction.found->reason.c_str()};
}

// A call that stages. Its failure, of whatever kind, spoils the transaction.
template <class Use>
ostrelStatus stage(ostrelTransaction* transaction, Use use) noexcept {
    if (transaction == nullptr)
        return OSTREL_INVALID;
    const ostrelStatus status = guard(transaction->error, [&] { use(transaction->changes); });
    if (status != OSTREL_DONE)
        transaction->changes.spoil(transaction->error);
    setFault(*transaction, transaction->changes.stagingFault());
    return status;
}

template <class Use>
ostrelStatus finish(ostrelSession* session, ostrelTransaction* transaction, Use use) noexcept {
    return onSession(session, [&](client::Session& target) {
        requireGiven(transaction != nullptr);
        setFault(*transaction, transaction->changes.stagingFault());
        try {
            use(target, transaction->changes);
        } catch (const client::Refusal& refusal) {
            setFault(*transaction, refusal.fault());
            throw;
        }
    });
}

}  // namespace

ostrelTransaction* ostrelTransactionNew() { return new (std::nothrow) ostrelTransaction(); }

void ostrelTransactionFree(ostrelTransaction* transaction) { delete transaction; }

ostrelStatus ostrelTransactionSetNumber(ostrelTransaction* transaction, const char* name, ostrelIndex index,
                                        ostrelValueType type, uint32_t number) {
    return stage(transaction, [&](client::StagedChanges& changes) {
        requireGiven(name != nullptr);
        changes.setNumber(name, index, type, number);
    });
}

ostrelStatus ostrelTransactionSetText(ostrelTransaction* transaction, const char* name, ostrelIndex index,
                                      ostrelValueType type, const char* text) {
    return stage(transaction, [&](client::StagedChanges& changes) {
        requireGiven(name != nullptr && text != nullptr);
        changes.setText(name, index, type, text);
    });
}

ostrelStatus ostrelTransactionErase(ostrelTransaction* transaction, const char* name) {
    return stage(transaction, [&](client::StagedChanges& changes) {
        requireGiven(name != nullptr);
        changes.erase(name);
    });
}

ostrelStatus ostrelTransactionNewInstance(ostrelTransaction* transaction, const char* templateName,
                                          const char* structure, uint32_t owner, ostrelIndex* instance) {
    return stage(transaction, [&](client::StagedChanges& changes) {
        requireGiven(templateName != nullptr && structure != nullptr && instance != nullptr);
        *instance = changes.newInstance(templateName, structure, owner);
    });
}

ostrelStatus ostrelTransactionRemove(ostrelTransaction* transaction, const char* name, ostrelIndex index) {
    return stage(transaction, [&](client::StagedChanges& changes) {
        requireGiven(name != nullptr);
        changes.remove(name, index);
    });
}

ostrelStatus ostrelTransactionRemoveOwned(ostrelTransaction* transaction, const char* name, uint32_t owner) {
    return stage(transaction, [&](client::StagedChanges& changes) {
        requireGiven(name != nullptr);
        changes.removeOwned(name, owner);
    });
}

ostrelStatus ostrelTransactionSetLine(ostrelTransaction* transaction, size_t line) {
    return stage(transaction, [&](client::StagedChanges& changes) { changes.setLine(line); });
}

size_t ostrelTransactionCount(const ostrelTransaction* transaction) {
    return transaction != nullptr ? transaction->changes.list().size() : 0;
}

uint32_t ostrelTransactionKey(const ostrelTransaction* transaction, ostrelIndex instance) {
    const uint32_t* key = transaction != nullptr ? transaction->changes.key(instance) : nullptr;
    return key != nullptr ? *key : 0;
}

ostrelStatus ostrelSessionApply(ostrelSession* session, ostrelTransaction* transaction) {
    return finish(session, transaction,
                  [](client::Session& target, client::StagedChanges& changes) { target.apply(changes); });
}

ostrelStatus ostrelSessionCheck(ostrelSession* session, ostrelTransaction* transaction) {
    return finish(session, transaction,
                  [](client::Session& target, client::StagedChanges& changes) { target.check(changes); });
}

int ostrelTransactionMayBeApplied(const ostrelTransaction* transaction) {
    return transaction != nullptr && transaction->changes.mayBeApplied ? 1 : 0;
}

const ostrelFault* ostrelTransactionFault(const ostrelTransaction* transaction) {
    return transaction != nullptr && transaction->found ? &transaction->fault : nullptr;
}

const char* ostrelTransactionError(const ostrelTransaction* transaction) {
    return transaction != nullptr ? transaction->error.c_str() : "the transaction is null";
}
