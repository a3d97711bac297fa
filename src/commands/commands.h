#pragma once

#include "commands/cmd.h"

namespace commands {

/// Prints the parameters that its arguments name, or all of them.
class GetCmd : public Cmd {
public:
    using Cmd::Cmd;
    bool execute(Client& client, const Arguments& args) const override;
    std::string help_text(const char* program) const override;
};

/// Writes one parameter's data from a textual value.
class SetCmd : public Cmd {
public:
    using Cmd::Cmd;
    bool execute(Client& client, const Arguments& args) const override;
    std::string help_text(const char* program) const override;
};

/// Prints the secure-store blob.
class GetSecCmd : public Cmd {
public:
    using Cmd::Cmd;
    bool execute(Client& client, const Arguments& args) const override;
    std::string help_text(const char* program) const override;
};

/// Publishes a file's content as the new secure-store blob.
class SetSecCmd : public Cmd {
public:
    using Cmd::Cmd;
    bool execute(Client& client, const Arguments& args) const override;
    std::string help_text(const char* program) const override;
};

}  // namespace commands
