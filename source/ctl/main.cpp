// ostrelCtl: reads and changes the configuration database through the daemon.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>

#include "ctl/changes.h"
#include "ctl/commands.h"
#include "ctl/failure.h"
#include "ctl/session.h"
#include "ostrel/plugin.h"

namespace {

// The words of the command line, and what the chosen command makes of them.
struct Arguments {
    std::vector<std::string> keys;
    std::string key;
    std::string type;
    std::string value;
    std::string tpltName;
    std::string owner = "0";
    std::string pKey;
    std::string path;
    std::function<void()> run;
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string readAll(std::FILE* file, const std::string& path) {
    std::string text;
    std::array<char, 4096> piece{};
    while (std::size_t size = std::fread(piece.data(), 1, piece.size(), file))
        text.append(piece.data(), size);
    if (std::ferror(file) != 0)
        throw Failure(Status::usage, path + ": " + std::strerror(errno));
    return text;
}

std::string readBatch(const std::string& path) {
    if (path == "-")
        return readAll(stdin, "standard input");
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "re"));
    if (!file)
        throw Failure(Status::usage, path + ": " + std::strerror(errno));
    return readAll(file.get(), path);
}

void get(const std::vector<std::string>& arguments) {
    std::vector<Key> keys(arguments.size());
    std::ranges::transform(arguments, keys.begin(), keyArgument);
    getValues(keys);
}

void applyOne(const Request& request) { applyChanges({&request, 1}); }

void addReads(CLI::App& app, Arguments& words) {
    CLI::App* command = app.add_subcommand("get", "print values as KEY TYPE VALUE");
    command->add_option("KEY", words.keys, "keys, or elements and members as KEY[INDEX]")->required();
    command->callback([&] { words.run = [&] { get(words.keys); }; });

    command = app.add_subcommand("count", "print how many instances or vector elements there are");
    command->add_option("NAME", words.key, "structure or vector")->required();
    command->add_option("OWNER", words.owner, "tag of up to four characters, or number; 0 for a vector");
    command->callback(
        [&] { words.run = [&] { countInstances(nameArgument(words.key), ownerArgument(words.owner)); }; });

    command = app.add_subcommand("list", "print their primary keys");
    command->add_option("NAME", words.key, "structure or vector")->required();
    command->add_option("OWNER", words.owner, "as for count");
    command->callback(
        [&] { words.run = [&] { listInstances(nameArgument(words.key), ownerArgument(words.owner)); }; });
}

void addChanges(CLI::App& app, Arguments& words) {
    CLI::App* command = app.add_subcommand("set", "write one value");
    command->add_option("KEY", words.key, "key, or element or member as KEY[INDEX]")->required();
    command->add_option("TYPE", words.type, "Bool, Byte, Dword, IP, MAC or String")->required();
    command
        ->add_option("VALUE", words.value,
                     "decimal number, or text; \"--\" in front of one that starts with \"-\"")
        ->required();
    command->callback(
        [&] { words.run = [&] { applyOne(setArguments(words.key, words.type, words.value)); }; });

    command = app.add_subcommand("erase", "remove a plain value and all elements of the key");
    command->add_option("KEY", words.key)->required();
    command->callback([&] { words.run = [&] { applyOne(eraseArgument(words.key)); }; });

    command = app.add_subcommand("new", "make an instance and print its primary key");
    command->add_option("TEMPLATE", words.tpltName)->required();
    command->add_option("STRUCT", words.key)->required();
    command->add_option("OWNER", words.owner, "tag of up to four characters, or number")->required();
    command->callback(
        [&] { words.run = [&] { applyOne(newArguments(words.tpltName, words.key, words.owner)); }; });

    command = app.add_subcommand("remove", "remove an instance or a vector's element");
    command->add_option("STRUCT", words.key, "STRUCT[PKEY], or STRUCT and PKEY")->required();
    command->add_option("PKEY", words.pKey);
    command->callback([&] { words.run = [&] { applyOne(removeArguments(words.key, words.pKey)); }; });

    command = app.add_subcommand("apply", "make all changes of a batch in one transaction, or none");
    command
        ->add_option("FILE", words.path,
                     "one change per line, like the commands set, erase, new and remove; - is "
                     "the standard input")
        ->required();
    command->callback([&] { words.run = [&] { applyChanges(parseBatch(readBatch(words.path))); }; });
}

void run(const Arguments& words) {
    words.run();
    std::cout.flush();
    if (!std::cout)
        throw Failure(Status::refused, "cannot write the result");
}

Status parseAndRun(int argc, char** argv) {
    CLI::App app("Reads and changes the configuration database through the running daemon.");
    app.footer(
        "A command that changes something returns when the change is stored and the services have been "
        "told.\n"
        "Exit status: 0 done; 1 refused, or no such key; 2 wrong usage; 3 the daemon is not running.");
    app.require_subcommand(1);
    Arguments words;
    addReads(app, words);
    addChanges(app, words);
    app.add_subcommand("shutdown", "end the daemon")->callback([&] { words.run = shutDown; });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Status::done : Status::usage;
    }
    run(words);
    return Status::done;
}

int report(Status status, const char* text) {
    std::fprintf(stderr, "ostrelCtl: %s\n", text);
    return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
    ostrelSetPrintLevel(0);
    try {
        return static_cast<int>(parseAndRun(argc, argv));
    } catch (const Failure& failure) {
        return report(failure.status(), failure.what());
    } catch (const ConnectionClosed& closed) {
        return report(Status::notRunning, closed.what());
    } catch (const std::exception& exception) {
        return report(Status::refused, exception.what());
    }
}
