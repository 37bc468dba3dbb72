// On the device the waits are always the shipped ones: how long a lost
// daemon is tolerated is not for an environment variable to change.
#include "platform/delay_overrides.h"

namespace atcmd {

const char *delay_overrides() { return nullptr; }

}  // namespace atcmd
