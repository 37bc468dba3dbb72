// Host waits: ATCMD_DELAYS, read once at the module's open, so that a test
// sets it in the process before it opens the module. Unset or empty means
// the shipped waits.
#include "platform/delay_overrides.h"

#include <stdlib.h>

namespace atcmd {

const char *delay_overrides() {
    const char *text = getenv("ATCMD_DELAYS");
    return text != nullptr && text[0] != '\0' ? text : nullptr;
}

}  // namespace atcmd
