// Clients that break the protocol, each session a connection of its own. Whatever they send never ends with
// an open connection and never holds the code that shuts the daemon down, so the daemon must live on and
// serve all others meanwhile. Keys that they may change begin with "h.", and they make instances of "hall".
#pragma once

#include <random>
#include <string>
#include <vector>

#include "client.h"

namespace hostile {

// For the factory files.
std::string defaults();
std::string templates();

// One sequence with every change and a commit, which writes number to h.number and can be repeated.
std::string sequence(uint32_t number);
// Every request that is answered, and a name.
std::string reads();

// Leaves in the middle: closes at once, or first tells that no more will come and takes what still comes.
void sendAndLeave(const std::string& bytes, bool politely);
// Reorders, repeats, cuts and overwrites the pieces of requests at random.
void randomSession(std::mt19937& random);
// Urgent data between the bytes of requests.
void sendUrgently(const std::string& bytes, size_t at);

// Clients that make the daemon wait for them, by kind: silent in a frame outside a sequence, the same inside
// one, and not taking a long answer. The daemon must drop each after its time limit.
std::vector<Client> stallers();

}  // namespace hostile
