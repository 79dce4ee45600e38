#include "client/sequence.h"

#include <optional>

#include "client/callFailure.h"
#include "client/signalHold.h"

namespace client {

void Sequence::run(const Deadline& deadline) {
    changes_.forgetKeys();
    {
        const SignalHold hold;
        connection_.queue(messageCode::startWriting);
        for (size_t i = 0; i < changes_.list().size(); ++i)
            queueChange(i, deadline);
        queueEnd();
        flush(deadline);
    }
    for (Answer answer = connection_.receive(deadline); answer.code != messageCode::readAnswer;
         answer = connection_.receive(deadline))
        takeAnswer(answer);
}

void Sequence::queueEnd() {
    packer_.finish();
    connection_.queue(kind_ == Kind::commit ? messageCode::commit : messageCode::rollback);
    commitEnd_ = kind_ == Kind::commit ? connection_.queued() : 0;
    marks_.push_back({connection_.queued(), changes_.list().size()});
    // A commit has no answer of its own; that of what stands behind it means that it is done.
    connection_.queue(messageCode::read);
}

void Sequence::queueChange(size_t number, const Deadline& deadline) {
    const Change& change = changes_.list()[number];
    const Parameter entry{.name = change.name,
                          .value = asValue(change.value),
                          .type = change.type,
                          .pKey = resolve(change.index, deadline),
                          .owner = change.owner,
                          .tpltName = change.templateName};
    if (packer_.add(change.code, entry))
        marks_.push_back({connection_.queued(), number});
    if (kind_ == Kind::trial) {
        packer_.finish();
        // An instantiation of nothing is answered when all before it was accepted.
        if (change.code != messageCode::instanciate)
            connection_.queue(messageCode::instanciate);
        marks_.push_back({connection_.queued(), number + 1});
    }
}

uint32_t Sequence::resolve(ostrelIndex index, const Deadline& deadline) {
    if (!StagedChanges::isNewInstance(index))
        return static_cast<uint32_t>(index);
    if (changes_.key(index) == nullptr) {
        packer_.finish();
        flush(deadline);
    }
    while (changes_.key(index) == nullptr)
        takeAnswer(connection_.receive(deadline));
    return *changes_.key(index);
}

void Sequence::takeAnswer(const Answer& answer) {
    if (answer.code != messageCode::instanciateAnswer)
        throw Failure(OSTREL_FAILED, "the daemon's answer makes no sense");
    for (const Parameter& entry : answer.entries)
        changes_.addKey(entry.valueAsNumber());
    ++accepted_;
}

void Sequence::flush(const Deadline& deadline) {
    const auto note = [this] {
        changes_.mayBeApplied |= commitEnd_ != 0 && connection_.sent() >= commitEnd_;
    };
    try {
        connection_.flush(deadline, [&] {
            note();
            reportProgress();
        });
    } catch (...) {
        note();
        throw;
    }
}

void Sequence::reportProgress() {
    std::optional<size_t> changes;
    for (; !marks_.empty() && marks_.front().bytes <= connection_.sent(); marks_.pop_front())
        changes = marks_.front().changes;
    if (changes && progress_)
        progress_(*changes, changes_.list().size());
}

}  // namespace client
