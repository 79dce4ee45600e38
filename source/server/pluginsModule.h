// Internal to the plug-in host: the name that its log lines carry.
#pragma once

constexpr char logModule[] = "ostrelPlugins";
