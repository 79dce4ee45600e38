// LMDB in the client's process, each commit forced, which is its default.
#pragma once

#include "peer.h"

std::unique_ptr<Peer> makeLmdb(const std::filesystem::path& folder);
