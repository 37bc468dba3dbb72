// Reads back what core/capture.h writes, checking every block's frame on
// the way: lengths that agree at both ends, the byte-order magic, the user
// link type, microsecond time stamps. Written from the pcapng layout, to
// hold the writer to it rather than to itself.
#ifndef ATCMD_TESTS_CORE_PCAPNG_READER_H
#define ATCMD_TESTS_CORE_PCAPNG_READER_H

#include <stdint.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace atcmd_test {

struct PcapPacket {
    std::string iface;  // the interface's if_name
    uint64_t ts_us;
    uint32_t flags;  // epb_flags; the direction is its low two bits
    uint32_t orig_len;
    std::string bytes;
};

struct PcapSection {
    std::vector<std::string> interfaces;  // if_name by interface id
    std::vector<PcapPacket> packets;
};

struct PcapFile {
    std::vector<PcapSection> sections;
    std::string error;  // the first malformation found, empty when none
    size_t size = 0;
};

inline PcapFile read_pcapng(const std::string &path) {
    PcapFile out;
    std::ifstream in(path, std::ios::binary);
    const std::string d((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    out.size = d.size();
    auto u16 = [&](size_t at) { uint16_t v; memcpy(&v, d.data() + at, 2); return v; };
    auto u32 = [&](size_t at) { uint32_t v; memcpy(&v, d.data() + at, 4); return v; };
    auto fail = [&](const std::string &what, size_t at) {
        out.error = what + " at offset " + std::to_string(at);
        return out;
    };
    // Options from `at` to `end`: calls take(code, value) for each.
    auto options = [&](size_t at, size_t end, auto take) {
        while (at + 4 <= end) {
            const uint16_t code = u16(at), len = u16(at + 2);
            if (code == 0) return true;
            if (at + 4 + len > end) return false;
            take(code, d.substr(at + 4, len));
            at += 4 + ((len + 3u) & ~3u);
        }
        return false;  // no opt_endofopt
    };
    for (size_t off = 0; off < d.size();) {
        if (d.size() - off < 12) return fail("truncated block", off);
        const uint32_t type = u32(off), len = u32(off + 4);
        if (len % 4 != 0 || len < 12 || off + len > d.size() || u32(off + len - 4) != len)
            return fail("bad block length", off);
        const size_t body = off + 8, end = off + len - 4;
        if (type == 0x0A0D0D0A) {
            if (u32(body) != 0x1A2B3C4D || u16(body + 4) != 1 || u16(body + 6) != 0)
                return fail("bad section header", off);
            out.sections.emplace_back();
        } else if (out.sections.empty()) {
            return fail("block before any section header", off);
        } else if (type == 1) {
            std::string name, tsresol;
            bool ended = options(body + 8, end, [&](uint16_t code, const std::string &v) {
                if (code == 2) name = v;
                if (code == 9) tsresol = v;
            });
            if (u16(body) != 147 || !ended || name.empty() || tsresol != std::string(1, '\6'))
                return fail("bad interface description", off);
            out.sections.back().interfaces.push_back(name);
        } else if (type == 6) {
            PcapSection &s = out.sections.back();
            const uint32_t id = u32(body), caplen = u32(body + 12);
            if (id >= s.interfaces.size() || body + 20 + caplen > end)
                return fail("bad packet block", off);
            PcapPacket p{s.interfaces[id], (uint64_t{u32(body + 4)} << 32) | u32(body + 8), 0,
                         u32(body + 16), d.substr(body + 20, caplen)};
            bool ended = options(body + 20 + ((caplen + 3u) & ~3u), end,
                                 [&](uint16_t code, const std::string &v) {
                                     if (code == 2 && v.size() == 4) memcpy(&p.flags, v.data(), 4);
                                 });
            if (!ended) return fail("packet options", off);
            s.packets.push_back(p);
        } else {
            return fail("unknown block type", off);
        }
        off += len;
    }
    return out;
}

}  // namespace atcmd_test

#endif
