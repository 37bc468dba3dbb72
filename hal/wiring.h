// Start-up's first step: the calls that lower layers make into higher ones
// at run time (received batches to the frame parser, parsed replies to their
// effects) are registered here, the one place that knows every layer.
#ifndef ATCMD_HAL_WIRING_H
#define ATCMD_HAL_WIRING_H

namespace atcmd {

// Idempotent; start-up calls it before any thread starts, and so does a
// program that drives the layers without opening the module.
void wire_layers();

}  // namespace atcmd

#endif
