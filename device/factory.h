// One pass of the factory test thread, for tests that start from a chosen
// index instead of waiting 109 minutes for the 16-bit wrap.
#ifndef ATCMD_DEVICE_FACTORY_H
#define ATCMD_DEVICE_FACTORY_H

#include <stdint.h>
#include <pthread.h>
#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern pthread_t g_TestTx_thread;
}

namespace atcmd {

// Sends the line for *index, advances it, and logs the wrap of its low 16
// bits with *round advanced once per output written.
void test_tx_step(uint32_t *index, uint32_t *round);

}  // namespace atcmd

#endif
