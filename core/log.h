// The module's one log statement. Every message goes to standard output, to
// the Android log and, once log_file_init has run, to the private log file,
// each prefixed with "[time][tid:N]function:line: ".
//
// Every statement names its area with one of the seven tags below and gives
// its level first:
//
//     ATLOGI(kLogState, kTagManage, "atcmder_Tx_thread thread is running");
//     ATLOGE(kLogAlways, kTagVuart, "open serial %s fails", path);
//
// A helper shared by several entry points logs with the _FN forms, passing
// the name of the entry point it works for, so that the function field of
// the prefix shows what a reader greps for (UART_Send, not the helper).
//
// The macros expand the caller's argument list once per output, refreshing
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

extern "C" {

ATCMD_API extern int32_t log_level;
ATCMD_API extern FILE *fd_logfile;
ATCMD_API extern char buf_timestamp[32];
ATCMD_API extern int64_t ts_base_sec;

ATCMD_API void log_file_init(const char *dir, const char *name);
ATCMD_API char *get_timestamp(void);
}

namespace atcmd {

// Verbosity levels: a statement is written when log_level (4 unless the
// client changes it) is at least its level. Level 1 is not used.
inline constexpr int kLogAlways = 0;  // failures: written at every log_level
inline constexpr int kLogNotice = 2;  // a thread ended by signal, a lost daemon heartbeat
inline constexpr int kLogState = 3;   // threads, links and modes changing; traffic
inline constexpr int kLogDetail = 4;  // every step, every byte sent

// The areas, as the Android log and the field engineers' filters know them.
inline constexpr char kTagHal[] = "AtCmdProcessHal";  // module entry points, log_file_init
inline constexpr char kTagManage[] = "ATCMD_MANAGE";  // service threads, WiFi and daemon control
inline constexpr char kTagUart[] = "ATCMD_UART";
inline constexpr char kTagVuart[] = "ATCMD_VUART";
inline constexpr char kTagParse[] = "ATCMD_PARSE";  // frames, fields, parsers, client notices
inline constexpr char kTagHotplug[] = "ATCMD_HOTPLUG";
inline constexpr char kTagQueue[] = "atcmder_queue";

// "%ld.%ld" of (sec - base) and usec; usec deliberately not zero-padded, so
// 5 us past second 100 reads "100.5". Returns out.
char *format_timestamp(char *out, size_t n, int64_t sec, int64_t usec, int64_t base);

// Reads the wall clock into this thread's own stamp buffer. Sharing one buffer
// between threads would let a concurrent statement tear the text mid-line.
const char *log_timestamp();

int log_tid();

// text in single quotes for the shell, each ' inside as '\''; cut short
// (and so refused by the shell) when out (size n) cannot hold it. Returns out.
const char *shell_quote(const char *text, char *out, size_t n);

// Serialises file output against log_file_init replacing the stream.
// Recursive, because an argument of a statement may itself log.
class LogFileLock {
public:
    LogFileLock();
    ~LogFileLock();
    LogFileLock(const LogFileLock &) = delete;
    LogFileLock &operator=(const LogFileLock &) = delete;
};

// True when the printf conversions of fmt, in order, are the letters of want
// ("%s is %zu" has "su"; length modifiers are skipped, "%%" is no conversion).
// A format chosen at run time loses the compiler's argument check; its
// owner pins the conversions with this in a static_assert instead.
constexpr bool has_conversions(const char *fmt, const char *want) {
    for (; *fmt != '\0'; ++fmt) {
        if (*fmt != '%') continue;
        ++fmt;
        if (*fmt == '%') continue;
        while (*fmt == 'z' || *fmt == 'l' || *fmt == 'h') ++fmt;
        if (*fmt != *want) return false;
        ++want;
    }
    return *want == '\0';
}

// The longest message a run-time format yields: the receive threads log a
// whole receive buffer (1024 bytes) inside their texts.
constexpr size_t kRunTimeTextMax = 1280;

}  // namespace atcmd

#define ATCMD_LOG_PREFIX "[%s][tid:%d]%s:%d: "

// The statement with every field given: the function name printed in the
// prefix, the level, the Android priority and the area tag.
#define ATLOG_FN(func, level, prio, tag, fmt, ...)                                        \
    do {                                                                                  \
        if (log_level >= (level)) {                                                       \
            int atlog_tid_ = atcmd::log_tid();                                            \
            printf(ATCMD_LOG_PREFIX fmt, atcmd::log_timestamp(), atlog_tid_, (func),      \
                   __LINE__, ##__VA_ARGS__);                                              \
            __android_log_print((prio), (tag), ATCMD_LOG_PREFIX fmt,                      \
                                atcmd::log_timestamp(), atlog_tid_, (func), __LINE__,     \
                                ##__VA_ARGS__);                                           \
            atcmd::LogFileLock atlog_lock_;                                               \
            if (fd_logfile != nullptr) {                                                  \
                fprintf(fd_logfile, ATCMD_LOG_PREFIX fmt, atcmd::log_timestamp(),         \
                        atlog_tid_, (func), __LINE__, ##__VA_ARGS__);                     \
                fflush(fd_logfile);                                                       \
            }                                                                             \
        }                                                                                 \
    } while (0)

#define ATLOGI(level, tag, fmt, ...) \
    ATLOG_FN(__func__, level, ANDROID_LOG_INFO, tag, fmt, ##__VA_ARGS__)
#define ATLOGE(level, tag, fmt, ...) \
    ATLOG_FN(__func__, level, ANDROID_LOG_ERROR, tag, fmt, ##__VA_ARGS__)
#define ATLOGI_FN(func, level, tag, fmt, ...) \
    ATLOG_FN(func, level, ANDROID_LOG_INFO, tag, fmt, ##__VA_ARGS__)
#define ATLOGE_FN(func, level, tag, fmt, ...) \
    ATLOG_FN(func, level, ANDROID_LOG_ERROR, tag, fmt, ##__VA_ARGS__)

// For a format text chosen at run time (pinned with has_conversions) that
// takes at least one argument. A text without arguments goes through
// ATLOGI_FN(func, level, tag, "%s", text) instead.
#define ATLOG_TEXT_FN(func, level, prio, tag, text, ...)                         \
    do {                                                                         \
        if (log_level >= (level)) {                                              \
            char atlog_text_[atcmd::kRunTimeTextMax];                            \
            _Pragma("GCC diagnostic push")                                       \
            _Pragma("GCC diagnostic ignored \"-Wformat-nonliteral\"")            \
            snprintf(atlog_text_, sizeof atlog_text_, text, __VA_ARGS__);        \
            _Pragma("GCC diagnostic pop")                                        \
            ATLOG_FN(func, level, prio, tag, "%s", atlog_text_);                 \
        }                                                                        \
    } while (0)

#endif
