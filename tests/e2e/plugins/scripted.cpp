// A plug-in that does what /tmp/NAME.script says, NAME being its own file's name without the suffix, and
// notes every call of an entry in /tmp/calls. A script's lines:
//   loadPriority N | restartPriority N | watch PATTERN | triggerOn PATTERN | null ENTRY (or: null table)
//   ENTRY write KEY PKEY NUMBER | ENTRY remove NAME PKEY | ENTRY removeOwner NAME OWNER
//   ENTRY new TEMPLATE NAME OWNER | ENTRY read KEY PKEY | ENTRY reboot N | ENTRY return N | ENTRY throw
// The lines of an entry are carried out at each of its calls; the script is read again each time.
#include <dlfcn.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ostrel/plugin.h"

namespace {

using Words = std::vector<std::string>;

std::string ownName() {
    Dl_info info{};
    static const char anchor = 0;
    dladdr(&anchor, &info);
    std::string path = info.dli_fname;
    path = path.substr(path.rfind('/') + 1);
    return path.substr(0, path.rfind('.'));
}

std::string& moduleName() {
    static std::string name = ownName();
    return name;
}

std::vector<Words> linesOf(const std::string& first) {
    std::vector<Words> lines;
    std::ifstream script("/tmp/" + moduleName() + ".script");
    for (std::string line; std::getline(script, line);) {
        std::istringstream stream(line);
        Words words;
        for (std::string word; stream >> word;)
            words.push_back(word);
        if (!words.empty() && words.front() == first)
            lines.emplace_back(words.begin() + 1, words.end());
    }
    return lines;
}

void note(const std::string& text) {
    std::ofstream("/tmp/calls", std::ios::app) << moduleName() << ' ' << text << '\n';
}

unsigned int number(const std::string& text) { return static_cast<unsigned int>(std::stoul(text)); }

int writeDword(const Words& words) {
    unsigned int value = number(words.at(3));
    auto* bytes = reinterpret_cast<unsigned char*>(&value);
    OstrelValue record(words.at(1).c_str(), bytes, 4, ostrelTypeDword, 0, 0);
    return words.at(2) == "0" ? OstrelClientWriteValue(&record)
                              : OstrelClientWriteVectorElement(&record, number(words.at(2)));
}

void readDword(const Words& words) {
    unsigned int value = 0;
    auto* bytes = reinterpret_cast<unsigned char*>(&value);
    int read = OstrelClientReadVectorElement_Dword(words.at(1).c_str(), number(words.at(2)), bytes);
    note("read " + words.at(1) + " " + std::to_string(read) + " " + std::to_string(value));
}

// Returns the entry's result.
int act(const char* entry, int* reboot = nullptr) {
    int result = 1;
    for (const Words& words : linesOf(entry)) {
        const std::string& verb = words.at(0);
        if (verb == "write")
            note("write " + std::to_string(writeDword(words)));
        else if (verb == "remove")
            note("remove " +
                 std::to_string(OstrelClientDeinstanciate(words.at(1).c_str(), number(words.at(2)))));
        else if (verb == "removeOwner")
            note("removeOwner " + std::to_string(OstrelClientDeinstanciateOwner(
                                      words.at(1).c_str(), ostrelStringToOwner(words.at(2).c_str()))));
        else if (verb == "new")
            note("new " +
                 std::to_string(ostrelClientInstanciateStructure(words.at(1).c_str(), words.at(2).c_str(),
                                                                 ostrelStringToOwner(words.at(3).c_str()))));
        else if (verb == "read")
            readDword(words);
        else if (verb == "reboot" && reboot != nullptr)
            *reboot = std::stoi(words.at(1));
        else if (verb == "return")
            result = std::stoi(words.at(1));
        else if (verb == "throw")
            throw std::runtime_error("scripted");
    }
    return result;
}

int init(int five, char** name) {
    *name = moduleName().data();
    note("init " + std::to_string(five));
    return act("init");
}

int die() {
    note("die");
    return act("die");
}

int writeConf() {
    note("writeConf");
    return act("writeConf");
}

int restart(int* reboot) {
    note("restart");
    return act("restart", reboot);
}

int trigger(const char* key) {
    note(std::string("trigger ") + key);
    return act("trigger");
}

int patternsOf(const char* word, unsigned int* count, char*** patterns, std::vector<std::string>& texts,
               std::vector<char*>& pointers) {
    for (const Words& words : linesOf(word))
        texts.push_back(words.at(0));
    for (std::string& text : texts)
        pointers.push_back(text.data());
    *count = static_cast<unsigned int>(pointers.size());
    *patterns = pointers.data();
    return 1;
}

int getWatchedValues(unsigned int* count, char*** patterns) {
    static std::vector<std::string> texts;
    static std::vector<char*> pointers;
    return patternsOf("watch", count, patterns, texts, pointers);
}

int getTriggerList(unsigned int* count, char*** patterns) {
    static std::vector<std::string> texts;
    static std::vector<char*> pointers;
    return patternsOf("triggerOn", count, patterns, texts, pointers);
}

unsigned int setting(const char* word) {
    std::vector<Words> lines = linesOf(word);
    return lines.empty() ? 0 : number(lines.back().at(0));
}

}  // namespace

OstrelIoFuncs_t* ostrelGetIoFuncs() {
    static OstrelIoFuncs_t table = {"scripted.cpp",
                                    init,
                                    die,
                                    writeConf,
                                    restart,
                                    getWatchedValues,
                                    getTriggerList,
                                    trigger,
                                    setting("loadPriority"),
                                    setting("restartPriority")};
    for (const Words& words : linesOf("null")) {
        if (words.at(0) == "table")
            return nullptr;
        if (words.at(0) == "die")
            table.die = nullptr;
        if (words.at(0) == "restart")
            table.restart = nullptr;
        if (words.at(0) == "getTriggerList")
            table.getTriggerList = nullptr;
    }
    return &table;
}

#ifdef ESSENTIAL
void ostrelClientEssentialFunc() {}
#endif
