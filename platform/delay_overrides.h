// Where a harness that starts the whole module in a process of its own (the
// scenarios, a simulator session) asks for shorter waits than the shipped
// ones: it cannot reach the module's variables, only its environment.
#ifndef ATCMD_PLATFORM_DELAY_OVERRIDES_H
#define ATCMD_PLATFORM_DELAY_OVERRIDES_H

namespace atcmd {

// The override text (core/delays.h has its form), or nullptr when there is
// none to apply.
const char *delay_overrides();

}  // namespace atcmd

#endif
