// Files of the protocol layer log under "ATCMD_PARSE" (their LOG_TAG); their
// thread bodies and the timeout queue upkeep log under "ATCMD_MANAGE".
#ifndef ATCMD_PROTOCOL_LOG_TAGS_H
#define ATCMD_PROTOCOL_LOG_TAGS_H

#include "core/log.h"

#define ATCMD_TAG_MANAGE "ATCMD_MANAGE"
#define MANAGE_LOGI(level, fmt, ...) \
    ATLOG(level, ANDROID_LOG_INFO, ATCMD_TAG_MANAGE, fmt, ##__VA_ARGS__)
#define MANAGE_LOGE(level, fmt, ...) \
    ATLOG(level, ANDROID_LOG_ERROR, ATCMD_TAG_MANAGE, fmt, ##__VA_ARGS__)

#endif
