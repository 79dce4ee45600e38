// Texts in the log that others look for: formats, of which they take the fixed part (logLayout.h), or whole
// texts.
#pragma once

namespace knownLine {

// Of a client's request, but the daemon's own fault.
constexpr char noTransaction[] =
    "[ostrelServer::HandleWriteSequence] Warning, dataStartWriteTransaction returned invalid handle";
constexpr char commitFailed[] = "[ostrelServer] Warning, commit failed";
constexpr char readNotAnswered[] = "[ostrelEvent:read] Marshalling message failed";
constexpr char instanceNotAnswered[] = "[ostrelEvent:instanciate] Marshalling message failed";

// No fault, though logged as an error.
constexpr char connected[] = "[ostrServer::PopMessage] Got connect from %s";

// Of a plug-in.
constexpr char writeConfFailed[] = "[Warning] writeConf failed for client :%s";
constexpr char restartFailed[] = "[Warning] restart failed for client :%s";
constexpr char entryThrew[] = "Plugin[%s].%s() threw an exception: %s";
constexpr char noPatterns[] = "error: Plugin[%s].%s() gave a count of %u but no patterns";
constexpr char writesInWriteConf[] = "error: a client is not allowed to %s value in its writing state !";

// Why the daemon ends.
constexpr char cannotBind[] = "Cannot bind";
constexpr char noPluginFolder[] = "Cannot open plugin dir";
constexpr char noPlugins[] = "No plugins loaded";
constexpr char initFailed[] = "Init failed for plugin";
constexpr char noWatchedValues[] = "Cannot get watched values";
constexpr char noTriggers[] = "Cannot get trigger values";

}  // namespace knownLine
