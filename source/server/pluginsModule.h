// Internal to the plug-in host: the module that its log lines name.
#pragma once

#include "server/logPlaces.h"

constexpr const char* logModule = logModules::plugins;
