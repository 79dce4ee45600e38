#include "ctl/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <span>
#include <string_view>
#include <type_traits>

#include "ctl/doctor.h"
#include "ctl/words.h"
#include "ostrel/version.h"

namespace {

constexpr char about[] = "Reads and changes the configuration database through the running daemon.";
constexpr char footer[] =
    "A command that changes something returns when the change is stored and the services have been told.\n"
    "Exit status: 0 done; 1 refused, or a key is missing; 2 wrong usage; 3 the daemon is not running;\n"
    "4 the daemon is busy. More: man ostrelCtl";
constexpr char helpHint[] = "; see ostrelCtl --help";
constexpr char keyHelp[] = "NAME, or NAME[INDEX] of an element, or of an instance's member";
constexpr char ownerHelp[] = "tag of up to four characters, or number";
constexpr char optionalOwnerHelp[] = "tag of up to four characters, or number; 0, the default, for a vector";

// Positionals are named as the usage shall show them.
class Help final : public CLI::Formatter {
public:
    std::string make_option_usage(const CLI::Option* option) const override { return option->get_name(); }
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
    }
};

// The option library takes the one word [a,b] for a list of two, ++ for the end of a command's words, and
// what follows -- for words of the whole program instead of the command's. A NUL, which no argument can hold,
// keeps such a word what it is on the way there.
constexpr char guard = '\0';
constexpr std::string_view optionsEnd = "--";

// From the back, as the library takes them.
std::vector<std::string> guarded(std::span<char*> words) {
    std::vector<std::string> result;
    bool optionsEnded = false;
    for (std::string word : words) {
        if (!optionsEnded && word == optionsEnd) {
            optionsEnded = true;
            continue;
        }
        if (optionsEnded || word == "++" || (word.starts_with('[') && word.ends_with(']')))
            word.insert(word.begin(), guard);
        result.push_back(std::move(word));
    }
    std::ranges::reverse(result);
    return result;
}

std::string unguarded(std::string word) {
    if (word.starts_with(guard))
        word.erase(word.begin());
    return word;
}

template <class Word>
CLI::Option* addWord(CLI::App* command, const char* name, Word& target, const char* help) {
    return command->add_option(name, target, help)->transform(unguarded, "")->required();
}

// run is called with context and arguments, and may return the program's status.
template <class Run>
CLI::App* addCommand(CLI::App& app, Arguments& words, const char* name, const char* help, Run run) {
    CLI::App* command = app.add_subcommand(name, help);
    command->callback([&words, run] {
        words.run = [run](Context& context, const Arguments& arguments) {
            if constexpr (!std::is_void_v<std::invoke_result_t<Run, Context&, const Arguments&>>)
                return run(context, arguments);
            else
                return run(context, arguments), Status::done;
        };
    });
    return command;
}

template <class T>
std::vector<T> each(const std::vector<std::string>& words, T (*parse)(std::string_view)) {
    std::vector<T> parsed(words.size());
    std::ranges::transform(words, parsed.begin(), parse);
    return parsed;
}

void addReads(CLI::App& app, Arguments& words) {
    CLI::App* command = addCommand(
        app, words, "get", "print values as KEY TYPE VALUE",
        [](Context& context, const Arguments& given) { getValues(context, each(given.keys, keyArgument)); });
    addWord(command, "KEY...", words.keys, keyHelp);

    command =
        addCommand(app, words, "list", "print the primary keys of instances, or the indices of elements",
                   [](Context& context, const Arguments& given) {
                       listInstances(context, nameArgument(given.key), ownerArgument(given.owner));
                   });
    addWord(command, "NAME", words.key, "structure or vector");
    addWord(command, "[OWNER]", words.owner, optionalOwnerHelp)->required(false);

    command = addCommand(app, words, "count", "print how many there are",
                         [](Context& context, const Arguments& given) {
                             countInstances(context, nameArgument(given.key), ownerArgument(given.owner));
                         });
    addWord(command, "NAME", words.key, "structure or vector");
    addWord(command, "[OWNER]", words.owner, optionalOwnerHelp)->required(false);
}

void addCheck(CLI::App* command, Arguments& words) {
    command->add_flag("--check", words.onlyCheck,
                      "let the daemon try it; nothing is stored, no service told");
}

void set(Context& context, const Arguments& given) {
    if (!given.typeOrValue)
        failUsage(std::string("VALUE is required") + helpHint);
    const ShownKey key = keyArgument(given.key);
    if (given.value)
        setValue(context, key, typeArgument(*given.typeOrValue), *given.value);
    else
        setValue(context, key, ostrelTypeNone, *given.typeOrValue);
}

void addValueChanges(CLI::App& app, Arguments& words) {
    CLI::App* command = addCommand(app, words, "set", "write one value", set);
    addWord(command, "KEY", words.key, keyHelp);
    addWord(command, "[TYPE]", words.typeOrValue,
            "Bool, Byte, Dword, IP, MAC or String; the key's own when it is left out")
        ->required(false);
    addWord(command, "VALUE", words.value, "decimal number, or text; -- goes before one that starts with -")
        ->required(false);
    addCheck(command, words);

    command = addCommand(
        app, words, "erase", "remove keys: each with its plain value and its elements",
        [](Context& context, const Arguments& given) { eraseKeys(context, each(given.keys, nameArgument)); });
    addWord(command, "KEY...", words.keys, "NAME");
    addCheck(command, words);
}

void addInstanceChanges(CLI::App& app, Arguments& words) {
    CLI::App* command = addCommand(app, words, "new", "make an instance and print its primary key",
                                   [](Context& context, const Arguments& given) {
                                       newInstance(context, nameArgument(given.templateName),
                                                   nameArgument(given.key), ownerArgument(given.owner));
                                   });
    addWord(command, "TEMPLATE", words.templateName, "what it is made from");
    addWord(command, "STRUCT", words.key, "structure that it belongs to");
    addWord(command, "OWNER", words.owner, ownerHelp);
    addCheck(command, words);

    command = addCommand(app, words, "remove", "remove instances or vector elements",
                         [](Context& context, const Arguments& given) {
                             removeInstances(context, each(given.keys, elementArgument));
                         });
    addWord(command, "STRUCT[PKEY]...", words.keys, "instances; elements as NAME[INDEX]");
    addCheck(command, words);

    command = addCommand(app, words, "remove-owner", "remove all instances of an owner",
                         [](Context& context, const Arguments& given) {
                             removeOwned(context, nameArgument(given.key), ownerArgument(given.owner));
                         });
    addWord(command, "STRUCT", words.key, "their structure");
    addWord(command, "OWNER", words.owner, ownerHelp);
    addCheck(command, words);
}

void addBatches(CLI::App& app, Arguments& words) {
    auto apply = [](Context& context, const Arguments& given) { applyBatch(context, given.path); };
    constexpr char fileHelp[] =
        "lines as get prints them, and more: see man ostrelCtl; - is the standard input";
    CLI::App* command =
        addCommand(app, words, "apply", "make all changes of a batch in one transaction, or none", apply);
    addWord(command, "FILE", words.path, fileHelp);
    addCheck(command, words);

    command = addCommand(app, words, "check", "the same as apply --check",
                         [apply](Context& context, const Arguments& given) {
                             context.onlyCheck = true;
                             apply(context, given);
                         });
    addWord(command, "FILE", words.path, fileHelp);
}

void addDaemonCommands(CLI::App& app, Arguments& words) {
    addCommand(app, words, "shutdown", "end the daemon",
               [](Context& context, const Arguments&) { context.session.shutdown(); });

    CLI::App* command = addCommand(app, words, "doctor", "look for faults, and tell what to do about each",
                                   [](Context& context, const Arguments& given) {
                                       return runDoctor(context.session, {given.json, given.logPath});
                                   });
    command
        ->add_option("--log", words.logPath,
                     std::string("the daemon's log; ") + defaultLogPath + " by default")
        ->type_name("FILE")
        ->transform(unguarded, "");
}

void addWatch(CLI::App& app, Arguments& words) {
    CLI::App* command = addCommand(
        app, words, "watch", "print keys that change, with their new values",
        [](Context& context, const Arguments& given) {
            const std::vector<uint32_t> owners = each(given.owners, ownerArgument);
            watchChanges(context,
                         {each(given.keys, nameArgument), {owners.begin(), owners.end()}, given.count});
        });
    addWord(command, "[PATTERN...]", words.keys, "NAME, or the beginning of names and a *; all by default")
        ->required(false);
    command
        ->add_option("--owner", words.owners, "print the values of this owner's instances, too; repeatable")
        ->type_name("OWNER")
        ->allow_extra_args(false)
        ->transform(unguarded, "");
    command->add_option("--count", words.count, "end after so many changed keys")->type_name("N");
}

std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> extras = app.remaining(true);
    if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr || extras.empty())
        return error.what();
    const std::string& first = extras.front();
    if (first.starts_with('-'))
        return "unknown option " + first;
    const bool isCommand = app.get_subcommands().empty();
    return (isCommand ? "unknown command " : "too many arguments: ") + unguarded(first);
}

}  // namespace

bool parseArguments(int argc, char** argv, Arguments& arguments) {
    std::vector<std::string> words = guarded({argv + std::min(argc, 1), argv + argc});
    arguments.json = std::ranges::find(words, "--json") != words.end();
    CLI::App app(about, "ostrelCtl");
    app.formatter(std::make_shared<Help>());
    app.footer(footer);
    app.set_version_flag("--version", "ostrelCtl " OSTREL_VERSION, "print the version");
    // Exactly one is wanted; but then the library's error would not name an unknown one.
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.add_option("--timeout", arguments.timeout, "seconds to wait for the daemon; 30 by default")
        ->type_name("SECONDS");
    app.add_flag("--json", arguments.json, "print results and errors as JSON");
    addReads(app, arguments);
    addValueChanges(app, arguments);
    addInstanceChanges(app, arguments);
    addBatches(app, arguments);
    addWatch(app, arguments);
    addDaemonCommands(app, arguments);
    try {
        app.parse(words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0)
            failUsage(explain(app, error) + helpHint);
        app.exit(error);
        return false;
    }
    if (!arguments.run)
        failUsage(std::string("a command is required") + helpHint);
    return true;
}
