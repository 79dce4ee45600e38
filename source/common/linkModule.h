// Internal to the link: the module that its log lines name.
#pragma once

#include "log/linkPlaces.h"

constexpr const char* logModule = logModules::link;
