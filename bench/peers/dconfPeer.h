// dconf: reads in the client's process, writes by its service over a bus of their own, both children.
#pragma once

#include "peer.h"

std::unique_ptr<Peer> makeDconf(const std::filesystem::path& folder);
