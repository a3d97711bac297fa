#pragma once

#include "commands/cmd.h"

namespace commands {

/// Publishes a file's content as the new secure-store blob.
class SetSecCmd : public Cmd {
public:
    using Cmd::Cmd;

    bool execute(std::shared_ptr<ecu::lapi::com::ITransportClient>& client,
                 const std::vector<std::string>& args) const override;
    std::string help_text(const char* program) const override;
};

}  // namespace commands
