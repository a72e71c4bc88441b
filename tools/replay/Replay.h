#pragma once

#include "tools/replay/HostReplay.h"

namespace com_tesk::replay {

/// Plays a recording as the options say. Reports on standard error, and the check on standard output. Blocks until the
/// end. The first thread of the process.
Result replay(const Options& options, const Sleep& sleep, const Say& say);

}  // namespace com_tesk::replay
