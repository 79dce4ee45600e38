#include <algorithm>
#include <iostream>
#include <iterator>
#include <string_view>
#include <system_error>

#include "ctl/changeSource.h"
#include "ctl/commands.h"
#include "ctl/lines.h"
#include "ostrel/keyPattern.hpp"

namespace {

// Keys that are read together; a change of one that is among them already needs no second line.
constexpr size_t mostPending = 256;

class ChangePrinter {
public:
    ChangePrinter(Context& context, const Watch& watch) : context_(context), watch_(watch) {}

    // Returns when the wanted number of keys is printed.
    void follow(ChangeSource& source) {
        while (!isDone()) {
            source.wait();
            while (std::optional<ChangeSource::News> news = source.next()) {
                take(*news);
                if (pending_.size() == mostPending || isDone())
                    break;
            }
            printPending();
        }
    }

private:
    bool isDone() const { return watch_.count != 0 && printed_ + pending_.size() >= watch_.count; }

    bool isWanted(std::string_view name) const {
        return watch_.patterns.empty() ||
               std::ranges::any_of(watch_.patterns, [name](std::string_view pattern) {
                   return ostrel::matchesPattern(pattern, name);
               });
    }

    void take(const ChangeSource::News& news) {
        if (news.isLosing || news.lost != 0) {
            printPending();
            say(news.isLosing
                    ? "changes are lost, as this does not read fast enough; what is printed may be old"
                    : std::to_string(news.lost) + " changes were lost, of any keys");
        }
        if (!news.name.empty() && isWanted(news.name) &&
            std::ranges::find(pending_, news.name) == pending_.end())
            pending_.push_back(news.name);
    }

    void say(const std::string& text) { context_.output->failure({OSTREL_INCOMPLETE, text}); }

    // The plain value, the elements, the members of the wanted owners' instances.
    std::vector<ShownKey> keysOf(const std::string& name) {
        std::vector<ShownKey> keys{{{name, 0}}};
        std::set<uint32_t> owners = watch_.owners;
        owners.insert(0);
        for (const uint32_t owner : owners) {
            const ostrel::Session::List list = context_.session.list(name, owner);
            if (!list.complete)
                say(keyText(name, 0) + ": " + ostrelSessionError(context_.session.get()));
            const size_t structure = list.keys.empty() ? 0 : structureOf(context_.session, name, owner);
            for (uint32_t index : list.keys)
                keys.push_back({{name, index}, structure});
        }
        return keys;
    }

    void printPending() {
        std::vector<ShownKey> keys;
        for (const std::string& name : pending_)
            std::ranges::move(keysOf(name), std::back_inserter(keys));
        std::vector<std::optional<ostrel::Value>> values =
            context_.session.readMany({keys.begin(), keys.end()});
        size_t next = 0;
        for (const std::string& name : pending_) {
            std::vector<ShownKey> found;
            std::vector<ostrel::Value> foundValues;
            for (; next < keys.size() && keys[next].name == name; ++next) {
                if (values[next]) {
                    found.push_back(keys[next]);
                    foundValues.push_back(*std::move(values[next]));
                }
            }
            context_.output->change(name, found, foundValues);
        }
        if (!std::cout.flush())
            throw Failure(OSTREL_FAILED, "cannot write the result");
        printed_ += pending_.size();
        pending_.clear();
    }

    Context& context_;
    const Watch& watch_;
    std::vector<std::string> pending_;
    size_t printed_ = 0;
};

}  // namespace

void watchChanges(Context& context, const Watch& watch) {
    std::optional<ChangeSource> source;
    try {
        source.emplace();
    } catch (const std::system_error& error) {
        // Somebody serves it, and has a full queue.
        if (error.code() == std::errc::resource_unavailable_try_again)
            throw Failure(OSTREL_REFUSED, "too many others want to watch already");
        // A daemon that does not run is the better reason.
        context.session.connect();
        const bool isAbsent = error.code() == std::errc::no_such_file_or_directory ||
                              error.code() == std::errc::connection_refused;
        throw Failure(OSTREL_FAILED, std::string(error.what()) +
                                         (isAbsent ? "; the daemon runs without its plug-in watch" : ""));
    }
    ChangePrinter(context, watch).follow(*source);
}
