// Internal to the server core: the module that its log lines name.
#pragma once

#include "log/serverPlaces.h"

constexpr const char* logModule = logModules::server;
