// The hash of names in the database's index: SipHash-1-3, with a key that each process draws. Clients may
// choose names, and must not be able to choose many that collide.
#pragma once

#include <cstdint>
#include <string_view>

namespace store {

// Of up to some hundred bytes. Any thread.
uint32_t hashOfName(std::string_view name);

}  // namespace store
