// The places in the log of the server core and of the plug-in host.
#pragma once

#include "log/logPlace.h"

namespace logModules {
constexpr char server[] = "ostrelServer";
constexpr char plugins[] = "ostrelPlugins";
}  // namespace logModules

namespace logPlace {

// Start and end, whatever they are found by.
constexpr LogPlace mainProgram{logModules::server, "main"};
constexpr LogPlace quitSignal{logModules::server, "Signal_Quit"};

// Clients that come and go, and their requests.
constexpr LogPlace listener{logModules::server, "listener"};
constexpr LogPlace removeConnection{logModules::server, "removeCnx"};
constexpr LogPlace dispatcher{logModules::server, "popMessage"};
constexpr LogPlace read{logModules::server, "unpackReadMessage"};
constexpr LogPlace ownerQty{logModules::server, "unpackGetOwnerQtyMessage"};
constexpr LogPlace pKeyList{logModules::server, "unpackGetPKeyListMessage"};

// Their changes.
constexpr LogPlace writeSequence{logModules::server, "HandleWriteSequence"};
constexpr LogPlace notify{logModules::server, "unpackNotifyMessage"};
constexpr LogPlace erase{logModules::server, "unpackEraseMessage"};
constexpr LogPlace instanciate{logModules::server, "unpackInstanciateMessage"};
constexpr LogPlace deinstanciate{logModules::server, "unpackDeinstanciateMessage"};
constexpr LogPlace deinstanciateOwner{logModules::server, "unpackDeinstanciateOwnerMessage"};

// What plug-ins ask for, and what is done for them later.
constexpr LogPlace writeValues{logModules::server, "OstrelClientWriteValues"};
constexpr LogPlace readTyped{logModules::server, "OstrelClientReadVectorElement_Typed"};
constexpr LogPlace replay{logModules::server, "popBackStoredMessage"};

// The plug-in host.
constexpr LogPlace loadPlugins{logModules::plugins, "loadPlugins"};
constexpr LogPlace loadOnePlugin{logModules::plugins, "loadOnePlugin"};
constexpr LogPlace initialise{logModules::plugins, "initIo"};
constexpr LogPlace searchTrigger{logModules::plugins, "matchTriggerName"};
constexpr LogPlace changeBroadcast{logModules::plugins, "PluginBroadcastChange"};

}  // namespace logPlace
