// What the model check plays with: few names, so that they collide, factory files, and values.
#pragma once

#include <string>
#include <vector>

#include "referenceModel.h"
#include "text/values.h"

namespace universe {

using namespace std::string_literals;

inline reference::Value dword(uint32_t number) {
    return {ostrelTypeDword, store::makeNumber(ostrelTypeDword, number).bytes};
}
inline reference::Value text(const std::string& value) { return {ostrelTypeString, value + '\0'}; }

inline std::string allBytes() {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

// Each is a key, a vector, a structure and a member by turns: all of a and b up to two dots, and odd ones.
inline std::vector<std::string> makeNames() {
    std::vector<std::string> names = {"a", "b"};
    for (size_t i = 0; i < 6; ++i) {
        names.push_back(names[i] + ".a");
        names.push_back(names[i] + ".b");
    }
    names.insert(names.end(),
                 {"a.@ [1]\"#\\", "@\xC3\xBC\xFF", std::string(125, 'n'), std::string(127, 'n')});
    return names;
}

struct Defaults {
    std::string text;
    std::map<reference::Key, reference::Value> values;
    std::map<reference::Key, reference::Instance> instances;
};

inline const std::string templatesText =
    "[t]\na Dword 1\nb String \"x\"\n[u]\na String \"\"\nb.a Dword 7\n[\"#\"]\n";
inline const std::map<std::string, std::map<std::string, reference::Value>> templates = {
    {"t", {{"a", dword(1)}, {"b", text("x")}}}, {"u", {{"a", text("")}, {"b.a", dword(7)}}}, {"#", {}}};

inline const std::vector<Defaults> defaults = {
    {"", {}, {}},
    {"a Dword 1\nb String \"x\"\na.a[1] Dword 8\na.a[3] Dword 0\nb[2] instance t 0\nb[3] instance u 7\n",
     {{{"a", 0}, dword(1)}, {{"b", 0}, text("x")}, {{"a.a", 1}, dword(8)}, {{"a.a", 3}, dword(0)}},
     {{{"b", 2}, {"t", 0}}, {{"b", 3}, {"u", 7}}}},
    {"a[4294967295] Dword 1\nb.a String \"\"\n\"a.@ [1]\\\"#\\\\\" Dword 2\na.b[4294967293] instance \"#\" "
     "7\n",
     {{{"a", 4294967295}, dword(1)}, {{"b.a", 0}, text("")}, {{"a.@ [1]\"#\\", 0}, dword(2)}},
     {{{"a.b", 4294967293}, {"#", 7}}}}};

inline const std::vector<reference::Value> oddValues = {
    {ostrelTypeBool, "\xFF"},
    {ostrelTypeByte, "\0"s},
    text("gr\xC3\xBC\xC3\x9F\xED\xA0\x80\xF4\x90\x80\x80\xE2\x82"),
    text(allBytes()),
    {ostrelTypeIP, "\0"s},
    {ostrelTypeIP, "fe80::1\0"s},
    {ostrelTypeMAC, "00:11:22:33:44:55\0"s}};
inline const std::vector<reference::Value> badValues = {
    {ostrelTypeNone, "abcd"},      {static_cast<ostrelValueType>(7), "a"},
    {ostrelTypeBool, ""},          {ostrelTypeByte, "ab"},
    {ostrelTypeDword, "abc"},      {ostrelTypeDword, "abcde"},
    {ostrelTypeString, ""},        {ostrelTypeString, "abc"},
    {ostrelTypeString, "a\0c\0"s}, {ostrelTypeIP, "1.2.3\0"s},
    {ostrelTypeIP, "1.2.3.4"},     {ostrelTypeMAC, "00:11:22:33:44:5\0"s}};

}  // namespace universe
