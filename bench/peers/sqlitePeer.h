// SQLite in the client's process: one table of names and numbers, write-ahead log, each commit forced.
#pragma once

#include "peer.h"

std::unique_ptr<Peer> makeSqlite(const std::filesystem::path& folder);
