// What is looked at in a plug-in's file before the loader gets it.
#pragma once

// Null, or why the file is not to be loaded: it ends before what is mapped of it does, which the loader would
// not notice before the process is ended by SIGBUS. What is no regular file, or none of this machine's
// format, is left to the loader. Never blocks.
const char* faultOfPluginFile(const char* path);
