// A plug-in that does what /tmp/NAME.script says, NAME being its own file's name without the suffix, and
// notes every call of an entry in /tmp/calls. The script, read again at each call, has two kinds of lines:
//   ENTRY VERB ARGUMENT...  what the entry does, line by line; the verbs stand in the table below. The
//                           entries getIoFuncs and load (of the file) come before the first that is noted.
//   SETTING ARGUMENT...     what the plug-in tells of itself; the settings stand at the end of this file.
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "oddArguments.h"
#include "ostrel/plugin.h"

namespace {

using Words = std::vector<std::string>;

std::string ownName() {
    Dl_info info{};
    static const char anchor = 0;
    dladdr(&anchor, &info);
    return std::filesystem::path(info.dli_fname).stem();
}

std::string moduleName = ownName();

std::vector<Words> linesOf(const std::string& first) {
    std::vector<Words> lines;
    std::ifstream script("/tmp/" + moduleName + ".script");
    for (std::string line; std::getline(script, line);) {
        std::istringstream stream(line);
        Words words(std::istream_iterator<std::string>(stream), {});
        if (!words.empty() && words.front() == first)
            lines.emplace_back(words.begin() + 1, words.end());
    }
    return lines;
}

void note(const std::string& text) {
    std::ofstream("/tmp/calls", std::ios::app) << moduleName << ' ' << text << '\n';
}

unsigned int number(const std::string& text) { return static_cast<unsigned int>(std::stoul(text)); }

int writeDword(const Words& words) {
    unsigned int value = number(words.at(3));
    auto* bytes = reinterpret_cast<unsigned char*>(&value);
    OstrelValue record(words.at(1).c_str(), bytes, 4, ostrelTypeDword, 0, 0);
    record.setTpltName("ignored");
    return words.at(2) == "0" ? OstrelClientWriteValue(&record)
                              : OstrelClientWriteVectorElement(&record, number(words.at(2)));
}

// Both ways to read it give the same.
std::string readDword(const Words& words) {
    const char* key = words.at(1).c_str();
    unsigned int value = 0;
    unsigned int again = number(words.at(2));  // the primary key first
    unsigned int size = 0;
    const int read =
        OstrelClientReadVectorElement_Dword(key, again, reinterpret_cast<unsigned char*>(&value));
    auto* bytes = reinterpret_cast<unsigned char*>(&again);
    if (OstrelClientReadValueWithPKey(key, sizeof again, &size, bytes) != read || again != value)
        return "differs";
    return words.at(1) + " " + std::to_string(read) + " " + std::to_string(value);
}

int fill(const Words& words) {
    int written = 0;
    for (unsigned int i = number(words.at(2)); i > 0; --i)
        written += writeDword({"write", words.at(1), std::to_string(i), words.at(2)});
    return written;
}

// Takes what the process has left, in ever smaller pieces.
void starve() {
    const rlimit none{1, RLIM_INFINITY};
    setrlimit(RLIMIT_DATA, &none);  // not RLIMIT_AS: other threads would keep what they have reserved
    for (size_t size = size_t{1} << 20U; size >= 16;) {
        if (std::malloc(size) == nullptr)
            size /= 2;
    }
}

int executeRest(const Words& words) {
    std::string command;
    for (size_t i = 1; i < words.size(); ++i)
        command += words[i] + " ";
    return ostrelExecute("%s", command.c_str());
}

std::vector<int> hogged;

int hog() {
    while (hogged.empty() || hogged.back() >= 0)
        hogged.push_back(dup(STDIN_FILENO));
    return hogged.back();
}

unsigned int ownerOf(const Words& words) { return ostrelStringToOwner(words.back().c_str()); }

// Verbs whose results are noted, with the words that follow them.
const std::map<std::string, std::function<std::string(const Words&)>> calls = {
    // KEY PKEY: its name, 1 when it was read, and the Dword
    {"read", readDword},
    // KEY PKEY NUMBER: the Dword, with primary key 0 the plain one
    {"write", [](const Words& words) { return std::to_string(writeDword(words)); }},
    // KEY COUNT: writes the elements 1 to the count, a call each; how many calls succeeded
    {"fill", [](const Words& words) { return std::to_string(fill(words)); }},
    // NAME PKEY
    {"remove",
     [](const Words& words) {
         return std::to_string(OstrelClientDeinstanciate(words.at(1).c_str(), number(words.at(2))));
     }},
    // NAME OWNER
    {"removeOwner",
     [](const Words& words) {
         return std::to_string(OstrelClientDeinstanciateOwner(words.at(1).c_str(), ownerOf(words)));
     }},
    // TEMPLATE NAME OWNER
    {"new",
     [](const Words& words) {
         return std::to_string(
             ostrelClientInstanciateStructure(words.at(1).c_str(), words.at(2).c_str(), ownerOf(words)));
     }},
    // TYPE: odd arguments everywhere; how many were refused
    {"odd",
     [](const Words& words) {
         return std::to_string(useOddArguments(static_cast<ostrelValueType>(number(words.at(1)))));
     }},
    // COMMAND of the shell: its status
    {"execute", [](const Words& words) { return std::to_string(executeRest(words)); }},
    // "descriptors": all, until another entry is called
    {"hog", [](const Words&) { return std::to_string(hog()); }},
};

// What an entry has been told to hand back.
struct Outcome {
    int result = 1;
    int reboot = 0;
};

// Verbs that are not noted.
const std::map<std::string, std::function<void(const Words&, Outcome&)>> deeds = {
    // N
    {"return", [](const Words& words, Outcome& outcome) { outcome.result = std::stoi(words.at(1)); }},
    // N: in restart
    {"reboot", [](const Words& words, Outcome& outcome) { outcome.reboot = std::stoi(words.at(1)); }},
    // MILLISECONDS
    {"sleep", [](const Words& words, Outcome&) { usleep(1000 * number(words.at(1))); }},
    {"throw", [](const Words&, Outcome&) { throw std::runtime_error("scripted"); }},
    {"throwNumber", [](const Words&, Outcome&) { throw 5; }},
    // the daemon
    {"kill", [](const Words&, Outcome&) { raise(SIGKILL); }},
    // leaves the process no memory
    {"starve", [](const Words&, Outcome&) { starve(); }},
    // a child that goes on as the daemon does; waited for
    {"fork",
     [](const Words&, Outcome&) {
         if (const pid_t child = fork(); child != 0)
             waitpid(child, nullptr, 0);
     }},
    // SECONDS: a child that stays so long
    {"leaveChild",
     [](const Words& words, Outcome&) {
         if (fork() == 0) {
             sleep(number(words.at(1)));
             _exit(0);
         }
     }},
};

int carryOut(const std::string& entry, int* reboot = nullptr) {
    for (const int fd : hogged)
        close(fd);
    hogged.clear();
    Outcome outcome;
    for (const Words& words : linesOf(entry)) {
        if (const auto call = calls.find(words.at(0)); call != calls.end())
            note(call->first + " " + call->second(words));
        else
            deeds.at(words.at(0))(words, outcome);
    }
    if (reboot != nullptr)
        *reboot = outcome.reboot;
    return outcome.result;
}

int act(const std::string& entry, int* reboot = nullptr, const std::string& argument = "") {
    note(entry + argument);
    return carryOut(entry, reboot);
}

// loadPriority N, restartPriority N: 0 where nothing is said.
std::string setting(const char* word) {
    std::vector<Words> lines = linesOf(word);
    return lines.empty() ? "0" : lines.back().at(0);
}

// null WHAT: an entry, srcFileName, moduleName, table, or one of the lists watch and triggerOn is null.
template <typename Target>
Target* unlessNull(const char* what, Target* target) {
    return setting("null") == what ? nullptr : target;
}

[[maybe_unused]] const int loaded = carryOut("load");

int init(int five, char** name) {
    *name = unlessNull("moduleName", moduleName.data());
    return act("init", nullptr, " " + std::to_string(five));
}

int die() { return act("die"); }
int writeConf() { return act("writeConf"); }
int restart(int* reboot) { return act("restart", reboot); }
int trigger(const char* key) { return act("trigger", nullptr, std::string(" ") + key); }

// watch PATTERN, triggerOn PATTERN, each any number of times; "null" is a null pattern, and a number behind
// it stands for so many patterns, numbered.
void patternsOf(const char* word, unsigned int* count, char*** patterns) {
    static std::map<std::string, Words> texts;
    static std::map<std::string, std::vector<char*>> pointers;
    // Listed twice, it is asked twice, and what it gave before is gone.
    texts[word].clear();
    pointers[word].clear();
    for (const Words& words : linesOf(word)) {
        for (unsigned int i = 0; words.size() > 1 && i < number(words[1]); ++i)
            texts[word].push_back(words[0] + std::to_string(i));
        if (words.size() == 1)
            texts[word].push_back(words[0]);
    }
    std::vector<char*>& list = pointers[word];
    for (std::string& text : texts[word])
        list.push_back(text == "null" ? nullptr : text.data());
    *count = static_cast<unsigned int>(list.size());
    *patterns = unlessNull(word, list.data());
}

int getWatchedValues(unsigned int* count, char*** patterns) {
    patternsOf("watch", count, patterns);
    return carryOut("getWatchedValues");
}

int getTriggerList(unsigned int* count, char*** patterns) {
    patternsOf("triggerOn", count, patterns);
    return carryOut("getTriggerList");
}

}  // namespace

OstrelIoFuncs_t* ostrelGetIoFuncs() {
    carryOut("getIoFuncs");
    static OstrelIoFuncs_t table = {.srcFileName = unlessNull("srcFileName", "scripted.cpp"),
                                    .init = unlessNull("init", init),
                                    .die = unlessNull("die", die),
                                    .writeConf = unlessNull("writeConf", writeConf),
                                    .restart = unlessNull("restart", restart),
                                    .getWatchedValues = unlessNull("getWatchedValues", getWatchedValues),
                                    .getTriggerList = unlessNull("getTriggerList", getTriggerList),
                                    .trigger = unlessNull("trigger", trigger),
                                    .loadPriority = number(setting("loadPriority")),
                                    .restartPriority = number(setting("restartPriority"))};
    return unlessNull("table", &table);
}
