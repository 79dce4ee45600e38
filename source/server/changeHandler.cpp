#include "server/changeHandler.h"

#include <memory>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/ostrelUtils.h"
#include "server/globals.h"
#include "server/sequenceSize.h"

namespace {

// A message's decoded values.
class Values {
public:
    // False when the list does not decode.
    bool decode(std::span<unsigned char> body) {
        OstrelValue* records = nullptr;
        unsigned int count = 0;
        if (!OstrelUnMarshallParameters(static_cast<unsigned int>(body.size()), body.data(), &count,
                                        &records))
            return false;
        records_.reset(records);
        count_ = count;
        return true;
    }
    std::span<OstrelValue> all() { return {records_.get(), count_}; }

private:
    std::unique_ptr<OstrelValue[]> records_;
    size_t count_ = 0;
};

void dump(const ChangeHandler& handler, std::span<const OstrelValue> values) {
    if ((logLevel::debug & printMask) == 0)
        return;
    for (size_t i = 0; i < values.size(); ++i) {
        const OstrelValue& value = values[i];
        OSTREL_LOG_AT(handler.place, logLevel::debug, "[%s %1d] %s -> %d :", handler.dumpTag,
                      static_cast<int>(i), LogText(value.name).text(), static_cast<int>(value.size));
        for (size_t at = 0; at < value.size; ++at)
            OSTREL_LOG_AT(handler.place, logLevel::debug, " %02X", value.value[at]);
        OSTREL_LOG_AT(handler.place, logLevel::debug, "%s", "");
    }
}

bool isAdmitted(const ChangeHandler& handler, const OstrelValue& value) {
    if (handler.count(value))
        return true;
    OSTREL_LOG_AT(handler.place, logLevel::error,
                  "[OstrelServer] The write sequence takes more than %zu bytes", SequenceSize::limit);
    return false;
}

// Decodes, applies, answers.
bool serve(const ChangeHandler& handler, long transaction, std::span<unsigned char> body, ostrelLink& link) {
    Values values;
    if (!values.decode(body)) {
        OSTREL_LOG_AT(handler.place, logLevel::error, "%s", handler.undecodable);
        if (handler.answerUndecodable != nullptr)
            handler.answerUndecodable(link);
        return false;
    }
    if (handler.dumpTag != nullptr)
        dump(handler, values.all());
    return handler.applyAll(transaction, values.all()) &&
           (handler.answer == nullptr || handler.answer(link, values.all()));
}

}  // namespace

bool ChangeHandler::applyAll(long transaction, std::span<OstrelValue> values) const {
    for (OstrelValue& value : values) {
        if (!isAdmitted(*this, value) || !apply(transaction, value)) {
            logRefused(place, value);
            return false;
        }
        OstrelValue& changed = addChanged(value.name);
        if (note != nullptr)
            note(changed, value);
    }
    return true;
}

bool ChangeHandler::operator()(long transaction, std::span<unsigned char> body, ostrelLink& link) const {
    if (serve(*this, transaction, body, link))
        return true;
    database->dataWriteRollback(transaction);
    return false;
}
