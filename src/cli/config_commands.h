#pragma once

#include "cli/command_call.h"

namespace quorvane {

/// Writes the project's configuration, without the members "id", "publicKey" and "name", and its
/// revision metadata.  After "Cannot write revision metadata" the configuration is the new one,
/// after any other failure no file has changed.
[[nodiscard]] int run_config_pull(const CommandCall& call);

/// Sends the configuration file unchanged, with the recorded revision; the service decides.
/// Without metadata of the same project and origin nothing is sent.  The configuration file is
/// never written, and the metadata only after the service has accepted.
[[nodiscard]] int run_config_push(const CommandCall& call);

}  // namespace quorvane
