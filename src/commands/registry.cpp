#include "commands/registry.h"

#include "commands/commands.h"

const commands::GetCmd get("get");
const commands::SetCmd set("set");
const commands::GetSecCmd getsec("getsec");
const commands::SetSecCmd setsec("setsec");

const std::vector<const commands::Cmd*> command_registry{&get, &set, &getsec, &setsec};
