// The accessory simulator: the far end of the module's links, speaking only
// the wire protocol and the daemon's control protocol.
#ifndef ATSIM_SIM_H
#define ATSIM_SIM_H

#include "sim/accessory.h"
#include "sim/hid_daemon.h"
#include "sim/identity.h"
#include "sim/responder.h"
#include "sim/transcript.h"

#endif
