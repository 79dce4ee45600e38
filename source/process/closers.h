// Owners of what C functions open.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <memory>

namespace process {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

struct LibraryCloser {
    void operator()(void* handle) const { dlclose(handle); }
};
using Library = std::unique_ptr<void, LibraryCloser>;  // of dlopen()

}  // namespace process
