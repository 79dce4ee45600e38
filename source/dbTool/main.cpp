// ostrelDbTool: checks, shows, moves and repairs the database files without the daemon.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>

#include "db/links.h"
#include "dbTool/commands.h"
#include "ostrel/version.h"
#include "text/fixedPaths.h"

namespace {

constexpr char helpHint[] = "; see ostrelDbTool --help";

// The words of the command line, and what the chosen command makes of them.
struct Arguments {
    std::string root;
    store::Paths paths;  // empty: the fixed ones
    std::vector<std::string> patterns;
    std::string kind;
    std::string prefix;
    ImportOptions import;
    RepairOptions repair;
    bool compactAnyway = false;
    bool isQuiet = false;
    std::function<Status(const store::Paths&)> run;
};

// An image's links lead to places in the image, not on the machine that builds it.
std::string inside(const std::string& root, const std::string& fixed) {
    const std::string path = root + fixed;
    std::optional<std::string> place = store::followLinks(store::systemFiles, path, root);
    if (!place)
        throw Failure(path + ": " + std::strerror(errno));
    return *std::move(place);
}

store::Paths pathsOf(const Arguments& words) {
    const auto choose = [&](const std::string& given, const char* fixed) {
        return !given.empty() ? given : words.root.empty() ? std::string(fixed) : inside(words.root, fixed);
    };
    store::Paths paths{.defaults = choose(words.paths.defaults, defaultsPath),
                       .live = words.paths.live,
                       .templates = choose(words.paths.templates, templatesPath)};
    if (paths.live.empty()) {
        // The live file itself may be a link, beside which the lock is; only its folder must be in the image.
        const std::filesystem::path live(livePath);
        paths.live = choose("", live.parent_path().c_str()) + '/' + live.filename().string();
        paths.root = words.root;
    }
    return paths;
}

template <class Use>
CLI::App* addCommand(CLI::App& app, Arguments& words, const char* name, const char* text, Use use) {
    CLI::App* command = app.add_subcommand(name, text);
    command->callback([&words, use] { words.run = use; });
    return command;
}

void addFiles(CLI::App& app, Arguments& words) {
    app.add_option("--root", words.root, "folder in front of the three fixed paths, such as an image's")
        ->check(CLI::ExistingDirectory);
    app.add_option("--defaults", words.paths.defaults, std::string("instead of ") + defaultsPath)
        ->check(CLI::ExistingFile);
    app.add_option("--templates", words.paths.templates, std::string("instead of ") + templatesPath)
        ->check(CLI::ExistingFile);
    app.add_option("--live", words.paths.live, std::string("instead of ") + livePath);
}

void addReads(CLI::App& app, Arguments& words) {
    addCommand(app, words, "check", "list all that is wrong with the files", checkFiles);
    const auto addListing = [&](const char* name, const char* text, auto list) {
        addCommand(app, words, name, text, [&words, list](const store::Paths& paths) {
            list(paths, Patterns(words.patterns));
            return Status::done;
        })->add_option("PATTERN", words.patterns, "a name, or the beginning of names with * behind it");
    };
    addListing("dump", "print the effective database, with where each value comes from", dump);
    addListing("diff", "print what differs from the defaults: - the default, + the live file", diff);
    addListing("export", "print the changes over the defaults, for import", exportChanges);
    CLI::App* command = addCommand(app, words, "names", "print names only; errors show in the exit status",
                                   [&words](const store::Paths& paths) {
                                       words.isQuiet = true;
                                       printNames(paths, words.kind, words.prefix);
                                       return Status::done;
                                   });
    command->add_option("KIND", words.kind, "keys, structures, templates, vectors, or all")
        ->required()
        ->check(CLI::IsMember({"keys", "structures", "templates", "vectors", "all"}));
    command->add_option("PREFIX", words.prefix, "that they begin with");
}

void addWrites(CLI::App& app, Arguments& words) {
    constexpr char dropText[] = "drop changes that the defaults no longer fit";
    CLI::App* command =
        addCommand(app, words, "import", "apply lines as export prints them, all or none",
                   [&words](const store::Paths& paths) { return importChanges(paths, words.import); });
    command->add_option("FILE", words.import.file, "- is the standard input")->required();
    command->add_flag("--replace", words.import.replace, "instead of all present changes, not over them");
    command->add_flag("--dry-run", words.import.dryRun, "write nothing");

    command->add_flag("--force", words.import.force, dropText);

    command = addCommand(app, words, "compact", "rewrite the live file without superseded lines",
                         [&words](const store::Paths& paths) {
                             compact(paths, words.compactAnyway);
                             return Status::done;
                         });
    command->add_flag("--force", words.compactAnyway, dropText);

    command = addCommand(app, words, "repair", "save what can be saved of a damaged live file, list the rest",
                         [&words](const store::Paths& paths) { return repair(paths, words.repair); });
    command->add_option(
        "FILE", words.repair.file,
        "a kept ostrdb.txt.damaged-N, to bring into the live file; else the live file itself");
    command->add_flag("--lines", words.repair.lines, "also take single lines of broken transactions");
    command->add_flag("--dry-run", words.repair.dryRun, "write nothing");
}

std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> extras = app.remaining(true);
    if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr || extras.empty())
        return error.what();
    if (extras.front().starts_with('-'))
        return "unknown option " + extras.front();
    const bool isCommand = app.get_subcommands().empty();
    return (isCommand ? "unknown command " : "too many arguments: ") + extras.front();
}

Status parseAndRun(int argc, char** argv, Arguments& words) {
    CLI::App app("Works on the configuration database's files, without the daemon.");
    app.footer(
        "Reading is safe while the daemon runs. import, compact and repair need it stopped.\n"
        "Exit status: 0 done; 1 a file has faults, or the command was refused; 2 wrong usage, or no such "
        "file;\n"
        "3 a daemon has the database, nothing was changed.");
    // Exactly one is wanted; but then the library's error would not name an unknown one.
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.set_version_flag("--version", "ostrelDbTool " OSTREL_VERSION, "print the version");
    addFiles(app, words);
    addReads(app, words);
    addWrites(app, words);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0)
            throw Failure(explain(app, error) + helpHint, Status::usage);
        app.exit(error);
        return Status::done;
    }
    if (!words.run)
        throw Failure(std::string("a command is required") + helpHint, Status::usage);
    // A fresh device has no live file; but one that is named is meant. import makes it.
    if (std::error_code error; !words.paths.live.empty() && !app.got_subcommand("import") &&
                               !std::filesystem::exists(words.paths.live, error))
        throw Failure(words.paths.live + ": there is no such file", Status::usage);
    const Status status = words.run(pathsOf(words));
    std::cout.flush();
    if (!std::cout)
        throw Failure("cannot write the result");
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments words;
    try {
        return static_cast<int>(parseAndRun(argc, argv, words));
    } catch (const std::exception& exception) {
        const auto* failure = dynamic_cast<const Failure*>(&exception);
        if (!words.isQuiet)
            std::fprintf(stderr, "ostrelDbTool: %s\n", exception.what());
        return static_cast<int>(failure != nullptr ? failure->status() : Status::findings);
    }
}
