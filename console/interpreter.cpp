#include "console/interpreter.h"

#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <istream>
#include <ostream>
#include <sstream>

#include "client/message.h"
#include "platform/property_errors.h"

namespace atcmd_console {
namespace {

// The module's callback is a plain function pointer without a context
// argument, so it finds its Console here. The lock also keeps a Console
// from going away while a service thread is inside its callback.
std::mutex g_instance_mu;
Console *g_instance = nullptr;

constexpr char kBtAddressKey[] = "net.bluetooth.macaddr";

bool parse_int(const std::string &text, long min, long max, long *value) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    long v = strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < min || v > max) return false;
    *value = v;
    return true;
}

// A field of the accessory record: NUL-terminated within its width, unless
// a reply overran it.
// The module's threads write the status fields while the console reads
// them; a field is one aligned word, so a relaxed load is the whole story.
template <typename T>
T relaxed(const T &field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <size_t N>
std::string field(const char (&text)[N]) {
    return "\"" + std::string(text, strnlen(text, N)) + "\"";
}

struct Query {
    const char *name;
    const char *symbol;
};
const Query kQueries[] = {
    {"sn", "get_kavren_sn"},         {"ver", "get_kavren_ver"},
    {"type", "get_kavren_type"},     {"screen", "get_kavren_screensts"},
    {"bat", "get_kavren_BATINFO"},   {"sid", "get_kavren_sid"},
    {"state", "get_kavren_state"},   {"usbstate", "get_kavren_usbstate"},
    {"blemac", "get_remote_bt_mac"}, {"micmode", "get_kavren_micmode"},
    {"castmode", "get_kavren_castmode"},
};

// The line after its first word, as typed (send and daemon pass it on
// verbatim), less a trailing comment and the blanks around it.
std::string rest_of_line(const std::string &line) {
    size_t i = line.find_first_not_of(" \t");
    bool quoted = false;
    for (; i < line.size(); ++i) {
        if (line[i] == '"') quoted = !quoted;
        if (!quoted && (line[i] == ' ' || line[i] == '\t')) break;
    }
    size_t from = line.find_first_not_of(" \t", i), to = line.size();
    if (from == std::string::npos) return "";
    for (size_t j = from; j < line.size(); ++j) {
        if (line[j] == '"') quoted = !quoted;
        if (!quoted && line[j] == '#' && (j == from || line[j - 1] == ' ' || line[j - 1] == '\t')) {
            to = j;
            break;
        }
    }
    size_t last = line.find_last_not_of(" \t\r\n", to == 0 ? 0 : to - 1);
    return last == std::string::npos || last < from ? "" : line.substr(from, last - from + 1);
}

}  // namespace

Console::Console(std::ostream &out, std::ostream &err)
    : out_(out), err_(err), start_(std::chrono::steady_clock::now()) {}

Console::~Console() {
    {
        std::lock_guard<std::mutex> lk(g_instance_mu);
        if (g_instance == this) g_instance = nullptr;
    }
    stop_ = true;
    if (follower_.joinable()) follower_.join();
}

bool Console::open(const std::string &dir, const std::string &variant, std::string *error) {
    {
        std::lock_guard<std::mutex> lk(g_instance_mu);
        if (g_instance != nullptr) {
            *error = "another console already has the module open in this process";
            return false;
        }
    }
    if (!module_.load(dir, variant, error)) return false;
    table_ = module_.sym<const at_cmd_t>("AT_CMDS");
    if (warn_without_bt_address_) warn_without_bt_address();
    auto *level = module_.sym<int32_t>("log_level");
    if (level != nullptr && module_log_level_ != kModuleDefault) *level = module_log_level_;
    auto *set_prop = module_.sym<int(const char *, const char *)>("property_set");
    if (!capture_.empty() &&
        (set_prop == nullptr || set_prop("persist.vendor.atcmd.capture", capture_.c_str()) != 0)) {
        *error = "cannot set persist.vendor.atcmd.capture for --capture";
        return false;
    }
    dev_ = module_.open(error);
    if (dev_ == nullptr) return false;
    {
        std::lock_guard<std::mutex> lk(g_instance_mu);
        g_instance = this;
    }
    if (dev_->set_notify_callback(dev_, &Console::callback) != 0) {
        *error = "the device refused the callback";
        return false;
    }
    return true;
}

// The module tells a newly plugged accessory the phone's Bluetooth address
// and waits up to 2 s for the property on every plug-in and WiFi start;
// on a PC nothing sets it.
void Console::warn_without_bt_address() {
    auto get = module_.sym<int(const char *, char *, const char *)>("property_get");
    char value[PROPERTY_VALUE_MAX] = "";
    if (get == nullptr || get(kBtAddressKey, value, "") > 0) return;
    std::lock_guard<std::mutex> lk(print_mu_);
    err_ << "warning: " << kBtAddressKey
         << " is not set: every plug-in and WiFi start waits 2 s for it (setprop " << kBtAddressKey
         << " AA:BB:CC:DD:EE:FF)\n"
         << std::flush;
}

void Console::add_extension(Extension extension, CheckTest is_check) {
    extensions_.push_back({std::move(extension), std::move(is_check)});
}

void Console::callback(AT_CMD_CbMsg_t *msg) {
    if (msg == nullptr) return;
    std::lock_guard<std::mutex> lk(g_instance_mu);
    if (g_instance != nullptr) g_instance->on_message(*msg);
}

void Console::on_message(const AT_CMD_CbMsg_t &msg) {
    // The message and its payload live only for this call.
    std::string text = atcmd_client::describe(msg, table_);
    stamp("client <- " + text);
    std::lock_guard<std::mutex> lk(msgs_mu_);
    msgs_.push_back(std::move(text));
    msgs_cv_.notify_all();
}

void Console::stamp(const std::string &text) {
    std::lock_guard<std::mutex> lk(print_mu_);
    double t = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    char when[32];
    snprintf(when, sizeof when, "%.3f ", t);
    out_ << when << text << '\n' << std::flush;
}

void Console::print(const std::string &text) {
    std::lock_guard<std::mutex> lk(print_mu_);
    out_ << text << '\n' << std::flush;
}

void Console::print_error(const std::string &text) {
    std::lock_guard<std::mutex> lk(print_mu_);
    out_ << std::flush;
    err_ << "error: " << text << '\n' << std::flush;
}

std::vector<std::string> Console::split_words(const std::string &line) {
    std::vector<std::string> words;
    std::string word;
    bool in_word = false, quoted = false, escaped = false;
    for (char c : line) {
        if (escaped) {
            word += c;
            escaped = false;
        } else if (quoted) {
            if (c == '\\')
                escaped = true;  // \" and \\ inside quotes: a text that holds quotes
            else if (c == '"')
                quoted = false;
            else
                word += c;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (in_word) words.push_back(word);
            word.clear();
            in_word = false;
        } else if (c == '#' && !in_word) {
            break;
        } else {
            in_word = true;
            if (c == '"')
                quoted = true;
            else
                word += c;
        }
    }
    if (in_word) words.push_back(word);
    return words;
}

const std::map<std::string, Console::Command> &Console::commands() {
    constexpr Kind acts = Kind::kActs, shows = Kind::kShows, checks = Kind::kChecks;
    static const std::map<std::string, Command> table = {
        {"send", {&Console::cmd_send, "send <AT line>", "hand an AT line to cmd_from_hidl", true,
                  acts}},
        {"query", {&Console::cmd_query, "query <name>",
                   "sn ver type screen bat sid state usbstate blemac micmode castmode info", true,
                   acts}},
        {"platform", {&Console::cmd_platform, "platform <1|2>", "1: USB/WiFi, 2: UART/WiFi", true,
                      acts}},
        {"mode", {&Console::cmd_mode, "mode <-1|0|1>", "cast mode: none, USB, WiFi", true, acts}},
        {"wifi", {&Console::cmd_wifi, "wifi start <ip> | wifi stop", "wifi_init / wifi_stchange(0)",
                  true, acts}},
        {"daemon", {&Console::cmd_daemon, "daemon <status text>", "hiddemon_stchange(text)", true,
                    acts}},
        {"follow-daemon", {&Console::cmd_follow_daemon, "follow-daemon <path>",
                           "forward each line of a FIFO or file to hiddemon_stchange "
                           "(heartbeats without a word)",
                           true, acts}},
        {"shake", {&Console::cmd_shake, "shake", "amlogic_shake_hands()", true, acts}},
        {"info", {&Console::cmd_info, "info", "the accessory record g_kavren_devInfo", true, shows}},
        {"status", {&Console::cmd_status, "status", "the device's system_status", true, shows}},
        {"prop", {&Console::cmd_prop, "prop <key>", "the module's property_get", true, shows}},
        {"setprop", {&Console::cmd_setprop, "setprop <key> <value>", "the module's property_set",
                     true, acts}},
        {"log", {&Console::cmd_log, "log [level]",
                 "where the module's log goes; set its log_level (-1 none .. 4 all)", true, shows}},
        {"wait", {&Console::cmd_wait, "wait <ms>", "sleep", false, shows}},
        {"mark", {&Console::cmd_mark, "mark",
                  "open a check window here, held over the commands up to the next check",
                  false, shows}},
        {"expect", {&Console::cmd_expect, "expect <text> [timeout_ms]",
                    "wait (5000 ms) for a message containing text, since the window opened",
                    false, checks}},
        {"expect-count", {&Console::cmd_expect_count, "expect-count <n> <text> [timeout_ms]",
                          "wait for exactly n such messages since the window opened", false,
                          checks}},
        {"echo", {&Console::cmd_echo, "echo <text>", "print text", false, shows}},
        {"help", {&Console::cmd_help, "help", "this list", false, shows}},
        {"quit", {nullptr, "quit", "leave without closing the device", false, shows}},
        {"close", {&Console::cmd_close, "close",
                   "the device's close: ends this process with SIGKILL", true, acts}},
    };
    return table;
}

bool Console::is_check(const std::vector<std::string> &words) const {
    if (words.empty()) return false;
    auto it = commands().find(words[0]);
    if (it != commands().end()) return it->second.kind == Kind::kChecks;
    for (const ExtensionEntry &ext : extensions_)
        if (ext.is_check && ext.is_check(words)) return true;
    return false;
}

void Console::mark(const std::string &opened_by) {
    {
        std::lock_guard<std::mutex> lk(msgs_mu_);
        window_ = msgs_.size();
        window_opened_by_ = opened_by;
    }
    for (auto &listener : mark_listeners_) listener();
}

void Console::on_mark(std::function<void()> listener) {
    mark_listeners_.push_back(std::move(listener));
}

std::string Console::window() const {
    std::lock_guard<std::mutex> lk(msgs_mu_);
    return window_opened_by_;
}

// Runs before the command: an acting command opens a new window unless a
// `mark` holds one that no check has looked through yet.
void Console::open_window_for(Kind kind, const std::string &line) {
    if (kind == Kind::kChecks) {
        pin_used_ = pinned_;
        return;
    }
    if (kind != Kind::kActs || (pinned_ && !pin_used_)) return;
    pinned_ = false;
    mark(line);
}

int Console::run_line(const std::string &line) {
    Args args;
    args.words = split_words(line);
    if (args.words.empty()) return kOk;
    const std::string &name = args.words[0];
    args.rest = rest_of_line(line);

    std::string error;
    auto it = commands().find(name);
    const bool builtin = it != commands().end();
    open_window_for(builtin ? it->second.kind : is_check(args.words) ? Kind::kChecks : Kind::kActs,
                    args.rest.empty() ? name : name + " " + args.rest);
    if (builtin) {
        if (name == "quit") return kQuit;
        if (it->second.needs_device && dev_ == nullptr) {
            print_error(name + ": no device is open");
            return kFailed;
        }
        if (!(this->*(it->second.handler))(args, &error)) {
            print_error(error);
            return kFailed;
        }
        return name == "close" ? kQuit : kOk;
    }
    for (ExtensionEntry &ext : extensions_) {
        // Collected, then written whole: service threads print meanwhile.
        std::ostringstream said;
        bool handled = ext.run(args.words, said, &error);
        if (!said.str().empty()) {
            std::lock_guard<std::mutex> lk(print_mu_);
            out_ << said.str() << std::flush;
        }
        if (!handled) continue;
        if (error.empty()) return kOk;
        print_error(error);
        return kFailed;
    }
    print_error("unknown command '" + name + "' (try help)");
    return kFailed;
}

int Console::run_script(std::istream &in, bool stop_on_error) {
    std::string line;
    bool failed = false;
    for (int number = 1; std::getline(in, line); ++number) {
        int rc = run_line(line);
        if (rc == kQuit) break;
        if (rc == kFailed) {
            {
                std::lock_guard<std::mutex> lk(print_mu_);
                err_ << "line " << number << " failed: " << line << '\n' << std::flush;
            }
            failed = true;
            if (stop_on_error) return 1;
        }
    }
    return failed ? 1 : 0;
}

bool Console::expect(const Expectation &want, int timeout_ms, std::string *why) {
    const auto begun = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lk(msgs_mu_);
    auto since = [&] {
        return std::vector<std::string>(msgs_.begin() + static_cast<std::ptrdiff_t>(window_),
                                        msgs_.end());
    };
    msgs_cv_.wait_until(lk, begun + std::chrono::milliseconds(timeout_ms),
                        [&] { return enough(want, since()); });
    const long waited = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::steady_clock::now() - begun)
                                              .count());
    *why = verdict(want, since(), window_opened_by_, waited);
    return why->empty();
}

// ---- commands ----

bool Console::cmd_send(const Args &a, std::string *error) {
    const std::string &line = a.rest;
    if (line.compare(0, 3, "AT+") != 0) {
        *error = "send: expected an AT line such as AT+SN?#13&2";
        return false;
    }
    AtCmder_t cmd{};
    size_t head_end = line.find_first_of("=?#\r\n");
    std::string head = line.substr(0, head_end);
    auto find = module_.sym<int(const char *, uint8_t *)>("findAtCmdIdx");
    if (find == nullptr || find(head.c_str(), &cmd.cmd_id) == 0) {
        *error = "send: unknown command " + head;
        return false;
    }
    char next = head_end == std::string::npos ? '\0' : line[head_end];
    cmd.type = next == '=' ? ATCMD_TYPE_SET : next == '?' ? ATCMD_TYPE_QUERY : ATCMD_TYPE_ACTION;
    // "#<seq>&<flag>": the sequence number the reply will carry back.
    size_t hash = line.find('#');
    if (hash != std::string::npos)
        cmd.seq_num = static_cast<uint16_t>(strtoul(line.c_str() + hash + 1, nullptr, 10));
    cmd.flag = static_cast<uint8_t>(relaxed(dev_->system_status.platform));
    cmd.source = ATCMD_EP_CLIENT;
    cmd.dest = ATCMD_EP_MCU;

    std::string text = line;
    if (text.size() < 2 || text.compare(text.size() - 2, 2, "\r\n") != 0) text += "\r\n";
    // The queue keeps a copy in a buffer of ATCMD_TEXT_MAX with its NUL.
    if (text.size() >= ATCMD_TEXT_MAX) {
        *error = "send: line longer than " + std::to_string(ATCMD_TEXT_MAX - 3) + " characters";
        return false;
    }
    char buffer[ATCMD_TEXT_MAX];
    memcpy(buffer, text.c_str(), text.size() + 1);
    cmd.data = buffer;
    stamp("client -> " + line);
    int rc = dev_->cmd_from_hidl(&cmd);
    if (rc != 0) *error = "send: cmd_from_hidl returned " + std::to_string(rc);
    return rc == 0;
}

bool Console::cmd_query(const Args &a, std::string *error) {
    if (a.words.size() != 2) {
        *error = "usage: query <name>";
        return false;
    }
    const std::string &name = a.words[1];
    if (name == "info") {
        auto info = module_.sym<void(void)>("get_kavren_info");
        if (info == nullptr) {
            *error = "query: the module has no get_kavren_info";
            return false;
        }
        stamp("client -> get_kavren_info()");
        info();
        return true;
    }
    for (const Query &q : kQueries) {
        if (name != q.name) continue;
        auto send = module_.sym<int(void)>(q.symbol);
        if (send == nullptr) {
            *error = std::string("query: the module has no ") + q.symbol;
            return false;
        }
        stamp(std::string("client -> ") + q.symbol + "()");
        int rc = send();
        if (rc != 0) *error = std::string(q.symbol) + " returned " + std::to_string(rc);
        return rc == 0;
    }
    *error = "query: unknown name '" + name + "' (" + commands().at("query").summary + ")";
    return false;
}

bool Console::cmd_platform(const Args &a, std::string *error) {
    long v = 0;
    if (a.words.size() != 2 || !parse_int(a.words[1], 1, 2, &v)) {
        *error = "usage: platform <1|2>";
        return false;
    }
    __atomic_store_n(&dev_->system_status.platform, static_cast<int32_t>(v), __ATOMIC_RELAXED);
    return true;
}

bool Console::cmd_mode(const Args &a, std::string *error) {
    long v = 0;
    if (a.words.size() != 2 || !parse_int(a.words[1], -1, 1, &v)) {
        *error = "usage: mode <-1|0|1>";
        return false;
    }
    __atomic_store_n(&dev_->system_status.mode, static_cast<int32_t>(v), __ATOMIC_RELAXED);
    return true;
}

bool Console::cmd_wifi(const Args &a, std::string *error) {
    int rc = 0;
    if (a.words.size() == 3 && a.words[1] == "start") {
        stamp("client -> wifi_init(" + a.words[2] + ")");
        rc = dev_->wifi_init(a.words[2].c_str());
    } else if (a.words.size() == 2 && a.words[1] == "stop") {
        stamp("client -> wifi_stchange(0)");
        rc = dev_->wifi_stchange(0);
    } else {
        *error = "usage: wifi start <ip> | wifi stop";
        return false;
    }
    if (rc != 0) *error = "wifi: the module returned " + std::to_string(rc);
    return rc == 0;
}

bool Console::cmd_daemon(const Args &a, std::string *error) {
    if (a.rest.empty()) {
        *error = "usage: daemon <status text>";
        return false;
    }
    stamp("client -> hiddemon_stchange(\"" + a.rest + "\")");
    int rc = dev_->hiddemon_stchange(a.rest.c_str());
    if (rc != 0) *error = "daemon: the module returned " + std::to_string(rc);
    return rc == 0;
}

bool Console::cmd_follow_daemon(const Args &a, std::string *error) {
    if (a.words.size() != 2) {
        *error = "usage: follow-daemon <path>";
        return false;
    }
    if (follower_.joinable()) {
        *error = "follow-daemon: already following";
        return false;
    }
    // Non-blocking, so that opening a FIFO does not wait for its writer and
    // the thread can notice the console going away.
    int fd = ::open(a.words[1].c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = "follow-daemon: " + a.words[1] + ": " + strerror(errno);
        return false;
    }
    follower_ = std::thread(&Console::follow, this, dev_, fd, a.words[1]);
    return true;
}

// Reads status lines as the simulated daemon writes them. The end of the
// data (a FIFO without writer, or the end of a file) is not the end: the
// daemon may be restarted or append more, so keep looking until stopped.
void Console::follow(atcmdprocess_device_t *dev, int fd, std::string path) {
    std::string pending;
    char buf[512];
    while (!stop_) {
        struct pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno != EAGAIN && errno != EINTR) {
            print_error("follow-daemon: " + path + ": " + strerror(errno));
            break;
        }
        if (n <= 0) {
            usleep(50 * 1000);
            continue;
        }
        pending.append(buf, static_cast<size_t>(n));
        size_t eol;
        while ((eol = pending.find('\n')) != std::string::npos) {
            std::string status = pending.substr(0, eol);
            pending.erase(0, eol + 1);
            if (!status.empty() && status.back() == '\r') status.pop_back();
            if (status.empty()) continue;
            // A heartbeat a second would bury everything else on the screen.
            if (status.find("heartbeat") == std::string::npos)
                stamp("daemon -> hiddemon_stchange(\"" + status + "\")");
            dev->hiddemon_stchange(status.c_str());
        }
    }
    close(fd);
}

bool Console::cmd_shake(const Args &, std::string *error) {
    stamp("client -> amlogic_shake_hands()");
    int rc = dev_->amlogic_shake_hands();
    if (rc != 0) *error = "shake: the module returned " + std::to_string(rc);
    return rc == 0;
}

bool Console::cmd_info(const Args &, std::string *error) {
    auto *info = module_.sym<kavren_devInfo_t>("g_kavren_devInfo");
    if (info == nullptr) {
        *error = "info: the module has no g_kavren_devInfo";
        return false;
    }
    // A copy: the dispatch thread fills the record as replies come.
    kavren_devInfo_t d;
    memcpy(&d, info, sizeof d);
    print("sn: " + field(d.sn));
    print("sid: " + field(d.sid));
    print("type: " + field(d.type));
    print("ver: " + field(d.ver_item0) + " " + field(d.ver_item1) + " " + field(d.ver_item2) + " " +
          field(d.ver_item3) + " " + field(d.ver_item4) + " " + field(d.ver_item5) + " " +
          field(d.ver_item6));
    print("mac: " + field(d.mac));
    print("model: " + std::to_string(d.model));
    return true;
}

bool Console::cmd_status(const Args &, std::string *) {
    const system_status_t &s = dev_->system_status;
    print("platform: " + std::to_string(relaxed(s.platform)));
    print("mode: " + std::to_string(relaxed(s.mode)));
    print("wifi_status: " + std::to_string(relaxed(s.wifi_status)));
    print("state: " + std::to_string(relaxed(s.state)));
    print("ipaddr: " + field(s.ipaddr));
    print("usb_devinfo: " + std::to_string(relaxed(s.usbdev_sts.usb_devinfo)));
    print("usb_connected: " + std::to_string(relaxed(s.usbdev_sts.usb_connected)));
    return true;
}

bool Console::cmd_prop(const Args &a, std::string *error) {
    if (a.words.size() != 2) {
        *error = "usage: prop <key>";
        return false;
    }
    auto get = module_.sym<int(const char *, char *, const char *)>("property_get");
    if (get == nullptr) {
        *error = "prop: the module has no property_get";
        return false;
    }
    char value[PROPERTY_VALUE_MAX] = "";
    get(a.words[1].c_str(), value, "");
    print(a.words[1] + "=" + value);
    return true;
}

bool Console::cmd_setprop(const Args &a, std::string *error) {
    if (a.words.size() != 3) {
        *error = "usage: setprop <key> <value>";
        return false;
    }
    auto set = module_.sym<int(const char *, const char *)>("property_set");
    if (set == nullptr) {
        *error = "setprop: the module has no property_set";
        return false;
    }
    int rc = set(a.words[1].c_str(), a.words[2].c_str());
    char why[160];
    if (rc != 0)
        *error = "setprop: " + a.words[1] + " not set: " +
                 atcmd::property_set_reason(rc, why, sizeof why) + " (property_set returned " +
                 std::to_string(rc) + ")";
    return rc == 0;
}

bool Console::cmd_wait(const Args &a, std::string *error) {
    long ms = 0;
    if (a.words.size() != 2 || !parse_int(a.words[1], 0, 24L * 3600 * 1000, &ms)) {
        *error = "usage: wait <ms>";
        return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return true;
}

bool Console::run_expectation(const Expectation &want, const std::string &timeout,
                              std::string *error) {
    long ms = 5000;
    if (!timeout.empty() && !parse_int(timeout, 0, 24L * 3600 * 1000, &ms)) return false;
    if (!expect(want, static_cast<int>(ms), error)) *error = "expect: " + *error;
    return true;
}

bool Console::cmd_expect(const Args &a, std::string *error) {
    if (a.words.size() < 2 || a.words.size() > 3 ||
        !run_expectation({a.words[1]}, a.words.size() == 3 ? a.words[2] : "", error)) {
        *error = "usage: expect <text> [timeout_ms] (quote a text with blanks)";
        return false;
    }
    return error->empty();
}

bool Console::cmd_expect_count(const Args &a, std::string *error) {
    long n = 0;
    if (a.words.size() < 3 || a.words.size() > 4 || !parse_int(a.words[1], 0, 1000000, &n) ||
        !run_expectation({a.words[2], static_cast<size_t>(n), true},
                         a.words.size() == 4 ? a.words[3] : "", error)) {
        *error = "usage: expect-count <n> <text> [timeout_ms]";
        return false;
    }
    return error->empty();
}

bool Console::cmd_mark(const Args &a, std::string *) {
    mark(a.words[0]);
    pinned_ = true;
    pin_used_ = false;
    return true;
}

bool Console::cmd_log(const Args &a, std::string *error) {
    auto *level = module_.sym<int32_t>("log_level");
    long v = 0;
    if (level == nullptr || a.words.size() > 2 ||
        (a.words.size() == 2 && !parse_int(a.words[1], -1, 4, &v))) {
        *error = level == nullptr ? "log: the module has no log_level"
                                  : "usage: log [level], level -1 (nothing) to 4 (everything)";
        return false;
    }
    // The service threads read it as they log: one aligned word.
    if (a.words.size() == 2) __atomic_store_n(level, static_cast<int32_t>(v), __ATOMIC_RELAXED);
    print("module log: level " + std::to_string(relaxed(*level)) + ", to " + log_destination_);
    return true;
}

bool Console::cmd_echo(const Args &a, std::string *) {
    print(a.rest);
    return true;
}

bool Console::cmd_help(const Args &, std::string *) {
    for (const auto &c : commands()) {
        std::string usage = c.second.usage;
        usage.resize(std::max<size_t>(usage.size() + 1, 34), ' ');
        print("  " + usage + c.second.summary);
    }
    print("  '#' at the start of a word starts a comment; double quotes group words.");
    return true;
}

bool Console::cmd_close(const Args &, std::string *error) {
    print("closing the device: the module ends this process with SIGKILL");
    int rc = dev_->common.close(&dev_->common);
    // Only when no service thread was running does close return.
    if (rc != 0) *error = "close returned " + std::to_string(rc);
    dev_ = nullptr;
    return rc == 0;
}

}  // namespace atcmd_console
