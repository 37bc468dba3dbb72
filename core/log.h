// The module's one log statement. Every message goes to standard output, to
// the Android log and, once log_file_init has run, to the private log file,
// each prefixed with "[time][tid:N]function:line: ".
//
// The macro expands the caller's argument list once per output, refreshing
// the time stamp before each one. Callers may rely on that: an argument with
// a side effect advances once per output written. Format texts are used as
// given; no newline is appended.
#ifndef ATCMD_CORE_LOG_H
#define ATCMD_CORE_LOG_H

#include <android/log.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "atcmdprocess.h"

namespace atcmd {

// "%ld.%ld" of (sec - base) and usec; usec deliberately not zero-padded, so
// 5 us past second 100 reads "100.5". Returns out.
char *format_timestamp(char *out, size_t n, int64_t sec, int64_t usec, int64_t base);

// Reads the wall clock into this thread's own stamp buffer. Sharing one buffer
// between threads would let a concurrent statement tear the text mid-line.
const char *log_timestamp();

int log_tid();

// Serialises file output against log_file_init replacing the stream.
// Recursive, because an argument of a statement may itself log.
class LogFileLock {
public:
    LogFileLock();
    ~LogFileLock();
    LogFileLock(const LogFileLock &) = delete;
    LogFileLock &operator=(const LogFileLock &) = delete;
};

}  // namespace atcmd

#define ATCMD_LOG_PREFIX "[%s][tid:%d]%s:%d: "

#define ATLOG(level, prio, tag, fmt, ...)                                                    \
    do {                                                                                     \
        if (log_level >= (level)) {                                                          \
            int atlog_tid_ = atcmd::log_tid();                                               \
            printf(ATCMD_LOG_PREFIX fmt, atcmd::log_timestamp(), atlog_tid_, __func__,       \
                   __LINE__, ##__VA_ARGS__);                                                 \
            __android_log_print((prio), (tag), ATCMD_LOG_PREFIX fmt, atcmd::log_timestamp(), \
                                atlog_tid_, __func__, __LINE__, ##__VA_ARGS__);              \
            atcmd::LogFileLock atlog_lock_;                                                  \
            if (fd_logfile != nullptr) {                                                     \
                fprintf(fd_logfile, ATCMD_LOG_PREFIX fmt, atcmd::log_timestamp(),            \
                        atlog_tid_, __func__, __LINE__, ##__VA_ARGS__);                      \
                fflush(fd_logfile);                                                          \
            }                                                                                \
        }                                                                                    \
    } while (0)

// The file's own area tag comes from LOG_TAG, defined before this header.
#define ATLOGI(level, fmt, ...) ATLOG(level, ANDROID_LOG_INFO, LOG_TAG, fmt, ##__VA_ARGS__)
#define ATLOGE(level, fmt, ...) ATLOG(level, ANDROID_LOG_ERROR, LOG_TAG, fmt, ##__VA_ARGS__)

#endif
