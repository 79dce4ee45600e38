// What is looked at in a plug-in's file before the loader gets it.
#pragma once

#include <optional>
#include <string>

// Why the file is not to be loaded, if it is not: it ends before what is mapped of it does, which the loader
// would not notice before the process is ended by SIGBUS. What is no regular file, or none of this machine's
// format, is left to the loader. Never blocks.
std::optional<std::string> faultOfPluginFile(const char* path);
