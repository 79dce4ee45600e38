// A plug-in that does what /tmp/NAME.script says, NAME being its own file's name without the suffix, and
// notes every call of an entry in /tmp/calls. A script's lines:
//   loadPriority N | restartPriority N | watch PATTERN | triggerOn PATTERN (or null; N after it: N of them,
//   numbered) null WHAT (an entry, srcFileName, moduleName, table, or one of the lists watch and triggerOn)
//   ENTRY write KEY PKEY NUMBER | ENTRY remove NAME PKEY | ENTRY removeOwner NAME OWNER
//   ENTRY new TEMPLATE NAME OWNER | ENTRY read KEY PKEY | ENTRY reboot N | ENTRY return N
//   ENTRY throw | ENTRY throwNumber | ENTRY sleep MILLISECONDS | ENTRY kill (the daemon)
//   ENTRY odd TYPE | ENTRY fill KEY COUNT | ENTRY fork (a child that returns, too) | ENTRY leaveChild SECONDS
//   ENTRY starve (leaves the process no memory) | ENTRY execute COMMAND (of the shell)
//   ENTRY hog descriptors (all, until another entry is called)
// The lines of an entry are carried out at each of its calls; the script is read again each time. "load" and
// "getIoFuncs" stand for what comes before the first entry.
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
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
    return words.at(2) == "0" ? OstrelClientWriteValue(&record)
                              : OstrelClientWriteVectorElement(&record, number(words.at(2)));
}

std::string readDword(const Words& words) {
    unsigned int value = 0;
    auto* bytes = reinterpret_cast<unsigned char*>(&value);
    int read = OstrelClientReadVectorElement_Dword(words.at(1).c_str(), number(words.at(2)), bytes);
    return words.at(1) + " " + std::to_string(read) + " " + std::to_string(value);
}

// Writes the elements 1 to the count, a call each. Returns how many of the calls succeeded.
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
    for (std::size_t size = std::size_t{1} << 20U; size >= 16;) {
        if (std::malloc(size) == nullptr)
            size /= 2;
    }
}

int executeRest(const Words& words) {
    std::string command;
    for (std::size_t i = 1; i < words.size(); ++i)
        command += words[i] + " ";
    return ostrelExecute("%s", command.c_str());
}

std::vector<int> hogged;

int hog() {
    while (hogged.empty() || hogged.back() >= 0)
        hogged.push_back(dup(STDIN_FILENO));
    return hogged.back();
}

// What a verb that calls the server gives.
std::string resultOf(const Words& words) {
    const char* name = words.at(1).c_str();
    if (words[0] == "hog")
        return std::to_string(hog());
    if (words[0] == "execute")
        return std::to_string(executeRest(words));
    if (words[0] == "odd")
        return std::to_string(useOddArguments(static_cast<ostrelValueType>(number(words[1]))));
    if (words[0] == "fill")
        return std::to_string(fill(words));
    if (words[0] == "read")
        return readDword(words);
    if (words[0] == "write")
        return std::to_string(writeDword(words));
    if (words[0] == "remove")
        return std::to_string(OstrelClientDeinstanciate(name, number(words.at(2))));
    unsigned int owner = ostrelStringToOwner(words.back().c_str());
    if (words[0] == "removeOwner")
        return std::to_string(OstrelClientDeinstanciateOwner(name, owner));
    return std::to_string(ostrelClientInstanciateStructure(name, words.at(2).c_str(), owner));
}

// Returns the entry's result.
int carryOut(const std::string& entry, int* reboot = nullptr) {
    int result = 1;
    for (int fd : hogged)
        close(fd);
    hogged.clear();
    for (const Words& words : linesOf(entry)) {
        if (words.at(0) == "throw")
            throw std::runtime_error("scripted");
        if (words.at(0) == "throwNumber")
            throw 5;
        if (words.at(0) == "kill")
            raise(SIGKILL);
        if (words.at(0) == "starve") {
            starve();
            return 1;
        }
        if (words.at(0) == "fork") {
            pid_t child = fork();
            if (child == 0)
                return 1;
            waitpid(child, nullptr, 0);
            continue;
        }
        if (words.at(0) == "leaveChild") {
            if (fork() == 0) {
                sleep(number(words.at(1)));
                _exit(0);
            }
            continue;
        }
        if (words.at(0) == "sleep")
            std::this_thread::sleep_for(std::chrono::milliseconds(number(words.at(1))));
        else if (words.at(0) == "reboot")
            *reboot = std::stoi(words.at(1));
        else if (words.at(0) == "return")
            result = std::stoi(words.at(1));
        else
            note(words.at(0) + " " + resultOf(words));
    }
    return result;
}

int act(const std::string& entry, int* reboot = nullptr, const std::string& argument = "") {
    note(entry + argument);
    return carryOut(entry, reboot);
}

std::string setting(const char* word) {
    std::vector<Words> lines = linesOf(word);
    return lines.empty() ? "0" : lines.back().at(0);
}

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
