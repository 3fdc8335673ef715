// The commands. Each function adds one to the command line; naming it there sets `invocation.run`.
// Both arguments live until the command has run.
#pragma once

#include "tools/service/invocation.h"

namespace CLI {
class App;
}

namespace valmere::tools {

class Command;

void AddListCommand(CLI::App& app, Invocation& invocation);
void AddGetCommand(CLI::App& app, Invocation& invocation);
void AddSetCommand(CLI::App& app, Invocation& invocation);
void AddWatchCommand(CLI::App& app, Invocation& invocation);
void AddWaitCommand(CLI::App& app, Invocation& invocation);
void AddPublishCommand(CLI::App& app, Invocation& invocation);
void AddInfoCommand(CLI::App& app, Invocation& invocation);
void AddMonitorCommand(CLI::App& app, Invocation& invocation);
void AddPingCommand(CLI::App& app, Invocation& invocation);
void AddStoreCommand(CLI::App& app, Invocation& invocation);
void AddLoadCommand(CLI::App& app, Invocation& invocation);
void AddExportCommand(CLI::App& app, Invocation& invocation);
void AddImportCommand(CLI::App& app, Invocation& invocation);
// Without the service: property files, and frames made and taken apart by hand.
void AddPropfileCommand(CLI::App& app, Invocation& invocation);
void AddRescueCommand(Command& propfile, Invocation& invocation);
void AddFrameCommand(CLI::App& app, Invocation& invocation);

}  // namespace valmere::tools
