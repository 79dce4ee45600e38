// Internal to the server core: the name that its log lines carry.
#pragma once

constexpr char logModule[] = "ostrelServer";
