// The places in the log of the socket link and the lists that it carries.
#pragma once

#include "log/logPlace.h"

namespace logModules {
constexpr char link[] = "ostrelLink";
}

namespace logPlace {
constexpr LogPlace bindTo{logModules::link, "bindTo"};
// What the lines of all that sends and receives say, whichever function it was called by.
constexpr LogPlace sendData{logModules::link, "sendData"};
constexpr LogPlace receiveData{logModules::link, "receiveData"};
constexpr LogPlace receiveMessage{logModules::link, "receiveMessage"};
constexpr LogPlace unmarshallParameters{logModules::link, "OstrelUnMarshallParameters"};
}  // namespace logPlace
