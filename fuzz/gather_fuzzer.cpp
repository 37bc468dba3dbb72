// Bytes as a serial link delivers them, in reads of any size, through the
// receive threads' batch gathering into the parser. The input is a list of
// chunks, each a length byte and that many bytes, written to a pipe one at a
// time and read as the receive thread reads. Whatever the split, the records
// handed on must be those of parsing each completed batch whole: a batch is
// complete when a read leaves it ending in "\r\n", and dropped once it holds
// more than 512 bytes.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

#include "atcmdprocess.h"
#include "fuzz/fuzz_quiet.h"
#include "link/acm_link.h"
#include "link/serial_rx.h"
#include "protocol/frame_parser.h"

namespace {

int g_pipe[2] = {-1, -1};

// A length byte: 1..128 bytes, or with the top bit 8..1016, so that reads
// both shorter and longer than a batch's limit occur.
size_t chunk_length(uint8_t b) { return (b & 0x7f) * ((b & 0x80) != 0 ? 8u : 1u) + 1; }

size_t pending() {
    int n = 0;
    return ioctl(g_pipe[0], FIONREAD, &n) == 0 ? static_cast<size_t>(n) : 0;
}

// What the gathering should have done with the same reads.
struct Model {
    std::string batch;
    void read(const std::string &bytes) {
        batch += bytes;
        if (batch.size() > atcmd::kMaxBatch) {
            batch.clear();
        } else if (batch.size() >= 2 && batch.compare(batch.size() - 2, 2, "\r\n") == 0) {
            char text[ATCMD_TEXT_MAX] = {};
            AtCmder_t scratch{};
            scratch.source = ATCMD_EP_MCU;
            scratch.data = text;
            atcmd::parse_char_by_char(&scratch, batch.c_str());
            batch.clear();
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (freopen("/dev/null", "w", stdout) == nullptr) return 0;
    atcmd_fuzz::silence_android_log();
    atcmd_fuzz::install_device();
    if (pipe2(g_pipe, O_CLOEXEC) != 0) abort();
    fcntl(g_pipe[1], F_SETPIPE_SZ, 1 << 16);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    atcmd::RxBatch batch;
    Model model;
    std::string got, want;
    for (size_t i = 0; i < size;) {
        const std::string chunk(reinterpret_cast<const char *>(data) + i + 1,
                                std::min(chunk_length(data[i]), size - i - 1));
        i += 1 + chunk.size();
        if (chunk.empty() || write(g_pipe[1], chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size()))
            continue;
        for (size_t offset = 0; pending() > 0;) {
            // A read takes what is waiting, up to the room left in the batch.
            const size_t n = std::min(pending(), static_cast<size_t>(batch.room()));
            if (!atcmd::receive_once(atcmd::kVuartRx, g_pipe[0], &batch)) abort();
            got += atcmd_fuzz::drain_records(&Rx_head, &g_rxqueue_mutex);
            model.read(chunk.substr(offset, n));
            offset += n;
            want += atcmd_fuzz::drain_records(&Rx_head, &g_rxqueue_mutex);
        }
    }
    if (got != want) abort();
    return 0;
}
