// Shared by the fuzz targets and the benchmark: keeps every log statement
// running (its formatting is part of what is exercised and measured) while
// its output goes nowhere, installs a device object with start-up's wiring
// between the layers, and takes records off
// a queue.
#ifndef ATCMD_FUZZ_FUZZ_QUIET_H
#define ATCMD_FUZZ_FUZZ_QUIET_H

#include <android/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "atcmdprocess.h"
#include "core/device_state.h"
#include "core/queue.h"
#include "hal/device_ops.h"
#include "hal/wiring.h"

namespace atcmd_fuzz {

inline void discard_log(const struct __android_logger_data *, const char *) {}

// Android log lines are still formatted by liblog, then handed here and dropped.
inline void silence_android_log() { __android_log_set_logger(discard_log); }

inline atcmdprocess_device_t *install_device() {
    static atcmdprocess_device_t dev;
    memset(&dev, 0, sizeof dev);
    atcmd::init_device(&dev, nullptr);
    atcmd::install_device(&dev);
    atcmd::wire_layers();
    return &dev;
}

// Every record taken off a queue, as text, after checking that each is one
// whole line that fits its text buffer.
inline std::string drain_records(atcmder_queue_t *head, pthread_mutex_t *lock) {
    char text[ATCMD_TEXT_MAX];
    AtCmder_t rec{};
    rec.data = text;
    std::string all;
    while (atcmder_dequeue(head, lock, &rec) == ATCMD_Q_OK) {
        size_t n = strlen(text);
        if (n < 2 || n > ATCMD_TEXT_MAX - 1 || text[n - 1] != '\n' || rec.cmd_id >= ATCMD_NUM_CMDS)
            abort();
        char fields[64];
        snprintf(fields, sizeof fields, "%u/%u/%u/%u/%u/%u:", rec.type, rec.source, rec.dest,
                 rec.cmd_id, rec.seq_num, rec.flag);
        all += fields;
        all += text;
    }
    return all;
}

}  // namespace atcmd_fuzz

#endif
