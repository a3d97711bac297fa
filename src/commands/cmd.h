#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/com.h"

/// The commands of korvid.
namespace commands {

using Client = std::shared_ptr<ecu::lapi::com::ITransportClient>;
using Arguments = std::vector<std::string>;

/// What one command word does.
class Cmd {
public:
    explicit Cmd(const char* word) : name(word) {}
    virtual ~Cmd() = default;

    /// Runs the command with the arguments behind its word, over a connected and started client.
    /// Returns whether it did its work; a failure has been reported by then. Lets the exceptions of
    /// platform operations pass.
    virtual bool execute(Client& client, const Arguments& args) const = 0;

    /// The block of the usage text that describes the command, with `program` in its examples.
    virtual std::string help_text(const char* program) const = 0;

    const std::string name;  ///< the command word
};

}  // namespace commands
