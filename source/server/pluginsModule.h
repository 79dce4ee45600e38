// Internal to the plug-in host: the module that its log lines name.
#pragma once

#include "log/serverPlaces.h"

constexpr const char* logModule = logModules::plugins;
