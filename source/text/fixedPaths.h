// Where things are on a device. Programs of others know these paths, so they stay as they are.
#pragma once

constexpr char socketPath[] = "/tmp/ostrel.sock";
constexpr char defaultLogPath[] = "/var/log/ostrel.log";
constexpr char pluginFolder[] = "/vemra/default/ostrPlugins";
constexpr char pluginSuffix[] = ".ostr";

// The database's files.
constexpr char defaultsPath[] = "/vemra/default/ostrDbDflt.txt";
constexpr char livePath[] = "/vemra/var/ostrdb.txt";
constexpr char templatesPath[] = "/vemra/default/ostrDbTmplt.txt";
