// ostrel and the floor that all are compared with.
#pragma once

#include "peer.h"

std::unique_ptr<Peer> makeEcho();
// Its client writes a frame in three parts, as the protocol's simplest client does.
std::unique_ptr<Peer> makeOstrel();
// The client library, beside the server of the peer that makeOstrel() made.
std::unique_ptr<Peer> makeOstrelLibrary();
