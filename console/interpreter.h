// The host console: plays the part of the phone's HIDL service for the
// module. It owns the loaded, opened module, prints every message the module
// hands its client, and interprets command lines that do what a client does
// (send AT lines, run queries, report the WiFi and HID daemon states, ...).
#ifndef ATCMD_CONSOLE_INTERPRETER_H
#define ATCMD_CONSOLE_INTERPRETER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iosfwd>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "console/evidence.h"
#include "client/loader.h"

namespace atcmd_console {

class Console {
public:
    // Handles a command line whose first word no built-in command takes;
    // returns true if it did (and sets *error to make the command fail).
    using Extension = std::function<bool(const std::vector<std::string> &words, std::ostream &out,
                                         std::string *error)>;
    // Says which of an extension's lines are checks (see mark()).
    using CheckTest = std::function<bool(const std::vector<std::string> &words)>;

    // run_line's results.
    static constexpr int kOk = 0;
    static constexpr int kFailed = 1;
    static constexpr int kQuit = 2;

    Console(std::ostream &out, std::ostream &err);
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    // Loads <dir>/atcmdprocess.<variant>.so, opens the device and installs
    // the callback. The callback is a plain C function, so only one Console
    // in a process can be open.
    bool open(const std::string &dir, const std::string &variant, std::string *error);
    // open() warns when the phone's Bluetooth address property is unset.
    void warn_without_bt_address(bool on) { warn_without_bt_address_ = on; }
    // The module's log_level from its open on (-1 nothing .. 4 everything).
    void set_module_log_level(int level) { module_log_level_ = level; }
    // A packet capture from the module's open on: path as the module sees it
    // (absolute, under its root), set as persist.vendor.atcmd.capture.
    void set_capture(const std::string &path) { capture_ = path; }

    void add_extension(Extension extension, CheckTest is_check = nullptr);

    // One command line: kOk, kFailed (the reason went to the error stream)
    // or kQuit.
    int run_line(const std::string &line);
    // Every line of `in`: 0 when all succeeded or one said quit, 1 at the
    // first failure (or at the end, when !stop_on_error and any failed).
    int run_script(std::istream &in, bool stop_on_error = true);

    // Checks judge only evidence that arrived in their window. A window
    // opens just before each command that acts (send, query, wifi, a
    // simulator action, ...) runs; commands that only show or wait (echo,
    // info, status, prop, wait) and checks leave it. `mark` opens one by
    // hand and holds it over the acting commands after it, up to the
    // first check. mark() also tells the listeners, which keep windows of
    // their own (the simulated accessory's received lines).
    void mark(const std::string &opened_by);
    void on_mark(std::function<void()> listener);
    // The command that opened the current window, for failure texts.
    std::string window() const;
    bool is_check(const std::vector<std::string> &words) const;

    // Waits until the messages since the window opened meet `want`; false
    // with the reason in *why at the deadline.
    bool expect(const Expectation &want, int timeout_ms, std::string *why);

    // The module's log_level, and where its log goes (said by `log`).
    void set_log_destination(std::string where) { log_destination_ = std::move(where); }

    atcmd_client::Module &module() { return module_; }
    atcmdprocess_device_t *device() const { return dev_; }

    // One line on the output stream, never interleaved with another: the
    // module's messages arrive on its own threads, and extensions print too.
    void print(const std::string &text);
    // The same, after "<seconds since start> ". The time is read under the
    // output lock, so stamps on the screen never go backwards.
    void stamp(const std::string &text);

    // A line as words: blanks separate, double quotes group (inside them a
    // backslash takes the next character as it is, so a text can hold a
    // quote), and a word that starts with '#' starts a comment
    // ("AT+SN?#13&2" stays one word).
    static std::vector<std::string> split_words(const std::string &line);

private:
    struct Args {
        std::vector<std::string> words;
        std::string rest;  // the line after the first word, as typed
    };
    using Handler = bool (Console::*)(const Args &, std::string *error);
    // What a command does to the check window.
    enum class Kind { kActs, kShows, kChecks };
    struct Command {
        Handler handler;
        const char *usage;
        const char *summary;
        bool needs_device;
        Kind kind;
    };
    struct ExtensionEntry {
        Extension run;
        CheckTest is_check;
    };

    static void callback(AT_CMD_CbMsg_t *msg);
    void on_message(const AT_CMD_CbMsg_t &msg);
    void print_error(const std::string &text);
    void warn_without_bt_address();
    void open_window_for(Kind kind, const std::string &line);
    bool run_expectation(const Expectation &want, const std::string &timeout, std::string *error);
    void follow(atcmdprocess_device_t *dev, int fd, std::string path);

    bool cmd_send(const Args &a, std::string *error);
    bool cmd_query(const Args &a, std::string *error);
    bool cmd_platform(const Args &a, std::string *error);
    bool cmd_mode(const Args &a, std::string *error);
    bool cmd_wifi(const Args &a, std::string *error);
    bool cmd_daemon(const Args &a, std::string *error);
    bool cmd_follow_daemon(const Args &a, std::string *error);
    bool cmd_shake(const Args &a, std::string *error);
    bool cmd_info(const Args &a, std::string *error);
    bool cmd_status(const Args &a, std::string *error);
    bool cmd_prop(const Args &a, std::string *error);
    bool cmd_setprop(const Args &a, std::string *error);
    bool cmd_wait(const Args &a, std::string *error);
    bool cmd_expect(const Args &a, std::string *error);
    bool cmd_expect_count(const Args &a, std::string *error);
    bool cmd_mark(const Args &a, std::string *error);
    bool cmd_log(const Args &a, std::string *error);
    bool cmd_echo(const Args &a, std::string *error);
    bool cmd_help(const Args &a, std::string *error);
    bool cmd_close(const Args &a, std::string *error);

    static const std::map<std::string, Command> &commands();

    std::ostream &out_;
    std::ostream &err_;
    std::mutex print_mu_;  // one line at a time on both streams
    const std::chrono::steady_clock::time_point start_;

    atcmd_client::Module module_;
    atcmdprocess_device_t *dev_ = nullptr;
    const at_cmd_t *table_ = nullptr;
    std::vector<ExtensionEntry> extensions_;
    std::string log_destination_ = "standard error";
    bool warn_without_bt_address_ = false;
    int module_log_level_ = kModuleDefault;
    std::string capture_;
    static constexpr int kModuleDefault = -2;  // leave log_level as the module has it

    mutable std::mutex msgs_mu_;
    std::condition_variable msgs_cv_;
    std::vector<std::string> msgs_;
    size_t window_ = 0;                       // first message the checks look at
    std::string window_opened_by_ = "start";  // under msgs_mu_ too
    // Script thread only.
    bool pinned_ = false;    // a `mark` holds the window
    bool pin_used_ = false;  // and a check has looked through it
    std::vector<std::function<void()>> mark_listeners_;

    std::atomic<bool> stop_{false};
    std::thread follower_;
};

}  // namespace atcmd_console

#endif
