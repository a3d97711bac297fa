#pragma once

#include <vector>

#include "commands/cmd.h"

/// Every command, in the order of the usage text. Lives until the process ends.
///
/// To add a command: declare its class in commands.h, define it in a source of its own (get_cmd.cpp
/// shows how), list that in CMakeLists.txt, and add one object to registry.cpp. The usage text and
/// the look-up by command word follow.
extern const std::vector<const commands::Cmd*> command_registry;
