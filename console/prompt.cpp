#include "console/prompt.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <thread>

#include "console/interpreter.h"

#ifdef ATCMD_CONSOLE_READLINE
#include <stdio.h>
#include <stdlib.h>
// readline's headers use FILE without including <stdio.h> themselves.
#include <readline/history.h>
#include <readline/readline.h>
#endif

namespace atcmd_console {
namespace {

// Shared by the two streams: whether the prompt is on the screen, and the
// whole lines that arrived meanwhile, for the main loop to print above it.
struct PromptState {
    std::mutex mu;
    bool at_prompt = false;
    std::string waiting;
    int wake[2] = {-1, -1};
};

void write_all(int fd, const std::string &text) {
    for (size_t done = 0; done < text.size();) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

// Writes whole lines: straight to its file descriptor while no prompt is
// shown (a script, or a command running), else into the waiting lines.
class LineBuf : public std::streambuf {
public:
    LineBuf(PromptState &state, int fd) : state_(state), fd_(fd) {}
    ~LineBuf() override { write_all(fd_, partial_); }

protected:
    int overflow(int c) override {
        if (c == traits_type::eof()) return 0;
        char ch = static_cast<char>(c);
        xsputn(&ch, 1);
        return c;
    }
    std::streamsize xsputn(const char *s, std::streamsize n) override {
        std::lock_guard<std::mutex> lk(state_.mu);
        partial_.append(s, static_cast<size_t>(n));
        size_t eol = partial_.rfind('\n');
        if (eol == std::string::npos) return n;
        std::string lines = partial_.substr(0, eol + 1);
        partial_.erase(0, eol + 1);
        if (state_.at_prompt) {
            state_.waiting += lines;
            char one = 1;
            if (write(state_.wake[1], &one, 1) < 0) { /* a wake-up is pending already */ }
        } else {
            write_all(fd_, lines);
        }
        return n;
    }

private:
    PromptState &state_;
    int fd_;
    std::string partial_;
};

}  // namespace

struct Terminal::Impl {
    Impl(int out, int err) : out_fd(out), out_buf(state, out), err_buf(state, err) {}
    int out_fd;
    PromptState state;
    LineBuf out_buf;
    LineBuf err_buf;
    std::ostream out{&out_buf};
    std::ostream err{&err_buf};
    int saved_stderr = -1;
    std::thread relay;
    std::atomic<bool> stop_relay{false};
};

Terminal::Terminal(int out_fd, int err_fd) : impl_(new Impl(out_fd, err_fd)) {}

Terminal::~Terminal() {
    if (impl_->saved_stderr >= 0) {
        dup2(impl_->saved_stderr, STDERR_FILENO);
        impl_->stop_relay = true;
        impl_->relay.join();
        close(impl_->saved_stderr);
    }
    for (int fd : impl_->state.wake)
        if (fd >= 0) close(fd);
}

bool Terminal::capture_stderr() {
    int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    int p[2];
    if (saved < 0) return false;
    if (pipe2(p, O_CLOEXEC) != 0 || dup2(p[1], STDERR_FILENO) < 0) {
        close(saved);
        return false;
    }
    close(p[1]);
    impl_->saved_stderr = saved;
    // Polls, so that it can stop even while a child process of the module
    // still holds a copy of the pipe.
    impl_->relay = std::thread([this, in = p[0]] {
        char buf[1024];
        for (;;) {
            struct pollfd pfd = {in, POLLIN, 0};
            bool stopping = impl_->stop_relay;
            if (poll(&pfd, 1, stopping ? 0 : 100) <= 0) {
                if (stopping) break;
                continue;
            }
            ssize_t n = read(in, buf, sizeof buf);
            if (n > 0)
                impl_->err.write(buf, n).flush();
            else if (n == 0 || errno != EINTR)
                break;
        }
        close(in);
    });
    return true;
}

std::ostream &Terminal::out() { return impl_->out; }
std::ostream &Terminal::err() { return impl_->err; }

#ifdef ATCMD_CONSOLE_READLINE

namespace {

constexpr char kPrompt[] = "atcmd> ";

struct Session {
    Console *console = nullptr;
    PromptState *state = nullptr;
    int out_fd = STDOUT_FILENO;
    bool done = false;
    bool quit = false;
    bool failed = false;
};
Session *g_session = nullptr;  // readline's line handler takes no context

void set_at_prompt(Session &s, bool at_prompt) {
    std::lock_guard<std::mutex> lk(s.state->mu);
    s.state->at_prompt = at_prompt;
    write_all(s.out_fd, s.state->waiting);
    s.state->waiting.clear();
}

void on_line(char *line) {
    Session &s = *g_session;
    if (line == nullptr) {  // end of input
        write_all(s.out_fd, "\n");
        s.done = true;
        rl_callback_handler_remove();
        return;
    }
    if (line[0] != '\0') add_history(line);
    std::string text = line;
    free(line);
    set_at_prompt(s, false);
    int rc = s.console->run_line(text);
    if (rc == Console::kFailed) s.failed = true;
    if (rc == Console::kQuit) {
        s.done = s.quit = true;
        rl_callback_handler_remove();
        return;
    }
    set_at_prompt(s, true);
}

// Clears the line being typed, prints what arrived, then draws the prompt
// and the typed text again below it.
void print_above_prompt(Session &s) {
    std::string lines;
    {
        std::lock_guard<std::mutex> lk(s.state->mu);
        lines.swap(s.state->waiting);
    }
    if (lines.empty()) return;
    rl_clear_visible_line();
    write_all(s.out_fd, lines);
    rl_on_new_line();
    rl_redisplay();
}

}  // namespace

int Terminal::session(Console &console) {
    const int out_fd = impl_->out_fd;
    PromptState &state = impl_->state;
    if (state.wake[0] < 0 && pipe2(state.wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        state.wake[0] = state.wake[1] = -1;
        return 1;
    }
    Session s;
    s.console = &console;
    s.state = &state;
    s.out_fd = out_fd;
    g_session = &s;
    // readline draws on the console's own output, not on the module's.
    FILE *screen = fdopen(dup(out_fd), "w");
    if (screen != nullptr) rl_outstream = screen;
    rl_callback_handler_install(kPrompt, on_line);
    set_at_prompt(s, true);
    while (!s.done) {
        struct pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {state.wake[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (fds[1].revents & POLLIN) {
            char drain[64];
            while (read(state.wake[0], drain, sizeof drain) > 0) {
            }
            print_above_prompt(s);
        }
        if (fds[0].revents & (POLLIN | POLLHUP)) rl_callback_read_char();
    }
    set_at_prompt(s, false);
    g_session = nullptr;
    if (screen != nullptr) {
        rl_outstream = nullptr;
        fclose(screen);
    }
    return s.quit || !s.failed ? 0 : 1;
}

#else  // no GNU readline: a plain prompt without editing or history

int Terminal::session(Console &console) {
    const int out_fd = impl_->out_fd;
    bool failed = false;
    std::string line;
    for (;;) {
        write_all(out_fd, "atcmd> ");
        if (!std::getline(std::cin, line)) {
            write_all(out_fd, "\n");
            break;
        }
        int rc = console.run_line(line);
        if (rc == Console::kQuit) return 0;
        if (rc == Console::kFailed) failed = true;
    }
    return failed ? 1 : 0;
}

#endif

}  // namespace atcmd_console
