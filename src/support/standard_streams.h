#pragma once

namespace quorvane {

/// Makes the process's standing independent of who started it.  Descriptors 0, 1 and 2 that were
/// closed are opened on /dev/null, or else the first file or socket would receive what is
/// printed.  SIGPIPE and SIGXFSZ are ignored, so that a peer or reader that went away and a file
/// size limit come back as errors of the call that met them.
void secure_standard_streams();

}  // namespace quorvane
