#pragma once

#include "commands/cmd.h"

namespace commands {

/// Prints the parameters that its arguments name, or all of them.
class GetCmd : public Cmd {
public:
    using Cmd::Cmd;

    bool execute(std::shared_ptr<ecu::lapi::com::ITransportClient>& client,
                 const std::vector<std::string>& args) const override;
    std::string help_text(const char* program) const override;
};

}  // namespace commands
