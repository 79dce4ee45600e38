// Where the three database files are.
#pragma once

#include <string>

namespace store {

struct Paths {
    std::string defaults;
    std::string live;
    std::string templates;
    std::string root = {};  // links are followed inside this folder; empty: as the system does
};

constexpr char fixedDefaults[] = "/vemra/default/ostrDbDflt.txt";
constexpr char fixedLive[] = "/vemra/var/ostrdb.txt";
constexpr char fixedTemplates[] = "/vemra/default/ostrDbTmplt.txt";

}  // namespace store
