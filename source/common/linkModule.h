// Internal to the link: the name that its log lines carry.
#pragma once

constexpr char logModule[] = "ostrelLink";
