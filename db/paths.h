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

}  // namespace store
