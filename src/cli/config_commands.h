#pragma once

#include <string_view>

#include "session/origin.h"

namespace quorvane {

/// One project's configuration and the local file that it is kept in.
struct ConfigTarget {
    std::string_view project;
    std::string_view file;  ///< As the user wrote it; relative to the working directory.
};

/// Writes the project's configuration, without the members "id", "publicKey" and "name", and its
/// revision metadata.  Returns the exit status; every failure has printed its line.  After "Cannot
/// write revision metadata" the configuration is the new one, after any other failure no file has
/// changed.
[[nodiscard]] int run_config_pull(const ServiceOrigin& origin, std::string_view token,
                                  const ConfigTarget& target);

/// Sends the configuration file unchanged, with the recorded revision; the service decides.
/// Without metadata of the same project and origin nothing is sent.  Returns the exit status.  The
/// configuration file is never written, and the metadata only after the service has accepted.
[[nodiscard]] int run_config_push(const ServiceOrigin& origin, std::string_view token,
                                  const ConfigTarget& target);

}  // namespace quorvane
