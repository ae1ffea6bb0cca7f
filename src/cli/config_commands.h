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
/// revision metadata.  Returns the exit status; every failure has printed its line, and only
/// "Cannot write revision metadata" leaves a changed file behind: the new configuration.
[[nodiscard]] int run_config_pull(const ServiceOrigin& origin, std::string_view token,
                                  const ConfigTarget& target);

/// Sends the configuration file as it stands, with the recorded revision, for the service to
/// judge.  Without metadata of the same project and origin nothing is sent.  Returns the exit
/// status; the configuration file is never written, the metadata only after the service accepted.
[[nodiscard]] int run_config_push(const ServiceOrigin& origin, std::string_view token,
                                  const ConfigTarget& target);

}  // namespace quorvane
