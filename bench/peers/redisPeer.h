// Redis as a child, on a socket of its own below its folder.
#pragma once

#include "peer.h"

// With synced, it appends each change to a file and forces it before the answer; else nothing is kept by a
// commit.
std::unique_ptr<Peer> makeRedis(const std::filesystem::path& folder, bool synced);
