// The log statement's run-time half, the log file and the record dump.
#include "core/log.h"

#include <inttypes.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/time.h>
#include <unistd.h>

#include <initializer_list>

#include "platform/sysroot.h"

int32_t log_level = 4;
FILE *fd_logfile = nullptr;
char buf_timestamp[32];
int64_t ts_base_sec = 0;

namespace atcmd {
namespace {

pthread_mutex_t g_file_lock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

char *refresh(char *out, size_t n) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return format_timestamp(out, n, tv.tv_sec, tv.tv_usec, ts_base_sec);
}

}  // namespace

char *format_timestamp(char *out, size_t n, int64_t sec, int64_t usec, int64_t base) {
    snprintf(out, n, "%ld.%ld", static_cast<long>(sec - base), static_cast<long>(usec));
    return out;
}

const char *log_timestamp() {
    static thread_local char stamp[sizeof buf_timestamp];
    return refresh(stamp, sizeof stamp);
}

int log_tid() { return static_cast<int>(gettid()); }

const char *shell_quote(const char *text, char *out, size_t n) {
    size_t o = 0;
    auto put = [&](char c) {
        if (o + 1 < n) out[o++] = c;
    };
    put('\'');
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p != '\'') {
            put(*p);
            continue;
        }
        for (char c : {'\'', '\\', '\'', '\''}) put(c);  // ' becomes '\''
    }
    put('\'');
    out[o] = '\0';
    return out;
}

LogFileLock::LogFileLock() { pthread_mutex_lock(&g_file_lock); }
LogFileLock::~LogFileLock() { pthread_mutex_unlock(&g_file_lock); }

}  // namespace atcmd

char *get_timestamp(void) { return atcmd::refresh(buf_timestamp, sizeof buf_timestamp); }

void log_file_init(const char *dir, const char *name) {
    char path[PATH_MAX + 16];
    atcmd::SysPath root_dir(dir);

    // Through the shell on purpose: "mkdir -p" creates every missing level in
    // one call, and its failure needs no handling here (the fopen below
    // fails and says so). The directory is quoted: under a host root or a
    // home directory it may hold blanks or characters the shell would take.
    char quoted[PATH_MAX * 4 + 2];
    snprintf(path, sizeof path, "mkdir -p %s",
             atcmd::shell_quote(root_dir.c_str(), quoted, sizeof quoted));
    int ignored = system(path);
    (void)ignored;

    snprintf(path, sizeof path, "%s/%s", dir, name);
    ATLOGI(atcmd::kLogState, atcmd::kTagHal, "log_filename=%s\n", path);

    atcmd::SysPath file(path);
    atcmd::LogFileLock lock;
    if (fd_logfile != nullptr) {
        fclose(fd_logfile);
        fd_logfile = nullptr;
    }
    // "a+": never truncate, every run appends to the same file. The trailing
    // blank is ignored by the C library; it is the mode the module shipped with.
    fd_logfile = fopen(file.c_str(), "a+ ");
    if (fd_logfile == nullptr) fwrite("create log file error!\n", 1, 23, stderr);
}

void dump_atcmd_data(const AtCmder_t *cmd) {
    if (cmd == nullptr) return;
    ATLOGI(atcmd::kLogDetail, atcmd::kTagManage,
           "dump_atcmd_data type:%d,source:%d,dest:%d, flag:%d,resendtimes:%d cmd_id:%d, "
           "seq_num:%d,tv_sec:%ld,tv_usec:%ld, data:%s",
           cmd->type, cmd->source, cmd->dest, cmd->flag, cmd->resendtimes, cmd->cmd_id,
           cmd->seq_num, static_cast<long>(cmd->tv_sec), static_cast<long>(cmd->tv_usec),
           cmd->data != nullptr ? cmd->data : "(null)");
}
